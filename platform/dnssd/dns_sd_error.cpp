#include "platform/dnssd/dns_sd_error.h"

#include <string>

namespace quillbox {

namespace {

class DnsSdCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "dns-sd"; }

    std::string message(int value) const override
    {
        switch (static_cast<DnsSdError>(value)) {
        case DnsSdError::EngineUnavailable:
            return "No DNS-SD service is running";
        case DnsSdError::EngineNotStarted:
            return "The DNS-SD engine cannot be started";
        case DnsSdError::NameTaken:
            return "The name is in use by another computer";
        case DnsSdError::InvalidName:
            return "The name cannot be used on the network";
        case DnsSdError::InvalidType:
            return "The service type is not valid";
        case DnsSdError::NotPermitted:
            return "The DNS-SD service does not permit it";
        case DnsSdError::TooManyEntries:
            return "The DNS-SD service has no room for more entries";
        case DnsSdError::NotFound:
            return "The service was not found";
        case DnsSdError::Internal:
            return "The DNS-SD service reported an error";
        }
        return "Unknown DNS-SD error";
    }
};

} // namespace

const std::error_category& dnsSdCategory()
{
    static const DnsSdCategory category;
    return category;
}

std::error_code make_error_code(DnsSdError error)
{
    return {static_cast<int>(error), dnsSdCategory()};
}

} // namespace quillbox
