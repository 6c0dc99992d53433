#include "doctor/doctor.h"

#include "control/control_message.h"
#include "control/json_form.h"
#include "doctor/doctor_checks.h"
#include "ui/shown_text.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <algorithm>
#include <utility>

namespace quillbox {

namespace {

constexpr const char* kIndent = "      ";

const char* wordOf(Finding::Result result)
{
    switch (result) {
    case Finding::Result::Ok:
        return "OK";
    case Finding::Result::Warn:
        return "WARN";
    case Finding::Result::Fail:
        break;
    }
    return "FAIL";
}

/// Padded to the width of the indentation.
std::string columnOf(Finding::Result result)
{
    std::string word = wordOf(result);
    word.resize(std::string_view(kIndent).size(), ' ');
    return word;
}

} // namespace

std::vector<Finding> diagnose(const DoctorFacts& facts)
{
    using namespace doctor;
    std::vector<Finding> all;
    const auto add = [&all](std::vector<Finding> findings) {
        std::move(findings.begin(), findings.end(), std::back_inserter(all));
    };
    add(checkInterfaces(facts.system));
    add(checkMulticast(facts.system));
    add(checkOtherHosts(facts.system));
    add(checkVpn(facts.system));
    add(checkFirewall(facts.system));
    add(checkEngine(facts.system));
    add(checkPhones(facts));
    add(checkRunningCopy(facts.copy));
    add(checkStartSettings(facts));
    add(checkFileBrowser(facts.system));
    add(checkNames(facts.system));
    add(checkStatusHost(facts.system));
    return all;
}

RunningCopyFacts askRunningCopy(RunningApplication* copy, std::chrono::milliseconds limit)
{
    using State = RunningCopyFacts::State;
    if (!copy)
        return {.state = State::NotRunning, .status = {}};
    const auto text = copy->ask(encoded(ControlRequest{.command = ControlCommand::Status}), limit);
    if (!text)
        return {.state = State::Silent, .status = {}};
    const auto answer = decodedAnswer(*text);
    if (!answer || !answer->status)
        return {.state = State::OtherVersion, .status = {}};
    return {.state = State::Answered, .status = answer->status};
}

std::string plainText(const std::vector<Finding>& findings)
{
    std::string text;
    for (const Finding& finding : findings) {
        text += columnOf(finding.result) + shownUtf8(finding.check + ": " + finding.text) + '\n';
        if (!finding.advice.empty())
            text += kIndent + shownUtf8(finding.advice) + '\n';
    }
    return text;
}

std::string jsonText(const std::vector<Finding>& findings)
{
    QJsonArray list;
    for (const Finding& finding : findings) {
        QJsonObject entry;
        entry.insert(QStringLiteral("check"), QString::fromStdString(finding.check));
        entry.insert(QStringLiteral("result"), QLatin1StringView(wordOf(finding.result)));
        entry.insert(QStringLiteral("text"), QString::fromStdString(finding.text));
        entry.insert(QStringLiteral("advice"), QString::fromStdString(finding.advice));
        list.append(entry);
    }
    return jsonText(QJsonDocument(list));
}

bool hasFailure(const std::vector<Finding>& findings)
{
    return std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.result == Finding::Result::Fail;
    });
}

} // namespace quillbox
