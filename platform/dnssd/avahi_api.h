#pragma once

#include "platform/dnssd/avahi_service_location.h"
#include "platform/dnssd/messages.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <avahi-common/defs.h>

/// The calls that libavahi-client and libavahi-core have in common, so that one `AvahiSession`
/// works over either. One thread at a time; callbacks come on it.
namespace quillbox::dnssd {

/// Something that Avahi does for us until it is destroyed. Not to be destroyed in a callback.
class AvahiObject {
public:
    virtual ~AvahiObject() = default;
};

/// Where the answers to a question go.
class AvahiAnswers {
public:
    enum class Change { Found, Lost };

    virtual ~AvahiAnswers() = default;

    virtual void onService(Change change, const Sighting& sighting, const char* name,
                           const char* type, const char* domain) = 0;
    virtual void onLocation(Change change, const Sighting& sighting,
                            const ServiceLocation& location) = 0;
    virtual void onAddress(Change change, const Sighting& sighting, const Address& address) = 0;
    virtual void onSettled() = 0;
    virtual void onFailed(int error) = 0;
};

/// Where an entry group reports; may be called within the group's own calls.
class AvahiGroupWatcher {
public:
    virtual ~AvahiGroupWatcher() = default;

    virtual void onGroupState(AvahiEntryGroupState state) = 0;
};

/// Records that are published together. Destroying it withdraws them, with goodbyes.
class AvahiGroup : public AvahiObject {
public:
    struct Service {
        std::string name;
        std::string type;
        std::string domain;   ///< empty: the default one
        std::string hostName; ///< empty: the computer's
        std::uint16_t port = 0;
        std::vector<std::string> txt;
        int interfaceIndex = kEveryInterface;
    };

    // Each returns one of Avahi's error numbers, 0 for none.

    /// On its interface, or on all of them.
    virtual int addService(const Service& service) = 0;
    /// On its interface, without a reverse record.
    virtual int addAddress(const std::string& hostName, const HostAddress& address) = 0;
    virtual int commit() = 0;
};

class AvahiApi {
public:
    enum class Record { Location, IPv4Address, IPv6Address };

    virtual ~AvahiApi() = default;

    // Each returns null when it cannot be had; then `lastError` says why. What is handed in
    // outlives the object.

    virtual std::unique_ptr<AvahiObject> browse(const std::string& type, AvahiAnswers& answers) = 0;
    virtual std::unique_ptr<AvahiObject> lookUp(const std::string& name, Record record,
                                                AvahiAnswers& answers) = 0;
    virtual std::unique_ptr<AvahiGroup> makeGroup(AvahiGroupWatcher& watcher) = 0;

    /// One of Avahi's error numbers.
    virtual int lastError() = 0;
    /// The default domain, "local" as a rule.
    virtual std::string domainName() = 0;
};

} // namespace quillbox::dnssd
