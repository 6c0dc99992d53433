#pragma once

#include "doctor/doctor.h"

#include <string>
#include <vector>

/// The checks that `diagnose` runs, a pure function each.
namespace quillbox::doctor {

using Findings = std::vector<Finding>;

inline Finding ok(std::string check, std::string text)
{
    return {std::move(check), Finding::Result::Ok, std::move(text), {}};
}

inline Finding warn(std::string check, std::string text, std::string advice)
{
    return {std::move(check), Finding::Result::Warn, std::move(text), std::move(advice)};
}

inline Finding fail(std::string check, std::string text, std::string advice)
{
    return {std::move(check), Finding::Result::Fail, std::move(text), std::move(advice)};
}

/// "one", "one and two", "one, two and three".
std::string listed(const std::vector<std::string>& words);

/// "1 host", "2 hosts".
std::string counted(std::size_t count, const std::string& noun);

Findings checkInterfaces(const SystemFacts& system);
Findings checkMulticast(const SystemFacts& system);
Findings checkOtherHosts(const SystemFacts& system);
Findings checkVpn(const SystemFacts& system);
Findings checkFirewall(const SystemFacts& system);
Findings checkEngine(const SystemFacts& system);
Findings checkPhones(const DoctorFacts& facts);
Findings checkRunningCopy(const RunningCopyFacts& copy);
Findings checkStartSettings(const DoctorFacts& facts);
Findings checkFileBrowser(const SystemFacts& system);
Findings checkNames(const SystemFacts& system);
Findings checkStatusHost(const SystemFacts& system);

/// Whether a phone was found that accepts connections.
bool isPhoneReached(const PhonesFacts& phones);

} // namespace quillbox::doctor
