#pragma once

#include "platform/dnssd/engine/messages.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <avahi-common/defs.h>

struct AvahiClient;
struct AvahiServer;

/// The calls that libavahi-client and libavahi-core have in common, so that `AvahiSession` works
/// with either. Single-threaded; callbacks run on the same thread.
namespace quillbox::dnssd {

/// A browser, lookup or entry group of Avahi, freed on destruction. Must not be destroyed in a
/// callback.
class AvahiObject {
public:
    virtual ~AvahiObject() = default;
};

/// Turns the results of a browse or lookup into events with the id of its request.
class AvahiAnswers final {
public:
    /// `failures` takes the Avahi error code if the browse or lookup fails. Both are used as long
    /// as this object exists.
    AvahiAnswers(RequestId itsId, const std::function<void(Event)>& theEmit,
                 std::map<RequestId, int>& theFailures)
        : id(itsId), emit(theEmit), failures(theFailures)
    {
    }

    template <class Value> void tell(Change change, const Sighting& sighting, Value value) const
    {
        emit(Answer<Value>{id, change, sighting, std::move(value)});
    }

    void settle()
    {
        if (!std::exchange(isSettled, true))
            emit(Settled{id});
    }

    void fail(int error) const { failures.emplace(id, error); }

private:
    RequestId id;
    const std::function<void(Event)>& emit;
    std::map<RequestId, int>& failures;
    bool isSettled = false;
};

/// Receives the states of an entry group; may be called inside the group's own calls.
class AvahiGroupWatcher {
public:
    virtual ~AvahiGroupWatcher() = default;

    virtual void onGroupState(AvahiEntryGroupState state) = 0;
};

/// An entry group: records that are published together. Destroying it withdraws them, with
/// goodbyes.
class AvahiGroup : public AvahiObject {
public:
    /// A resource record with data in wire format (RFC 1035, section 3.2.1).
    struct RawRecord {
        std::string name; ///< in presentation format
        std::uint16_t type = 0;
        std::uint32_t lifetime = 0; ///< in seconds
        bool isUnique = false;      ///< no other host has records of this name and type
        std::vector<std::uint8_t> data;
        int interfaceIndex = kEveryInterface;
    };

    enum class Probing { Needed, Done };

    // Each returns an Avahi error code, 0 on success.

    /// On one interface or on all of them. Only a unique record is probed for.
    virtual int addRecord(const RawRecord& record, Probing probing) = 0;
    /// On one interface, without a reverse record.
    virtual int addAddress(const std::string& hostName, const HostAddress& address,
                           Probing probing) = 0;
    virtual int commit() = 0;
};

class AvahiApi {
public:
    enum class Record { Location, IPv4Address, IPv6Address };

    virtual ~AvahiApi() = default;

    // Each returns null on failure; `lastError` then gives the reason. `watcher` must outlive
    // the returned object.

    virtual std::unique_ptr<AvahiObject> browse(const std::string& type, AvahiAnswers answers) = 0;
    virtual std::unique_ptr<AvahiObject> lookUp(const std::string& name, Record record,
                                                AvahiAnswers answers) = 0;
    virtual std::unique_ptr<AvahiGroup> makeGroup(AvahiGroupWatcher& watcher) = 0;

    /// An Avahi error code.
    virtual int lastError() = 0;
    /// The default domain, usually "local".
    virtual std::string domainName() = 0;
};

/// The API of avahi-daemon, over D-Bus. `client` must outlive the API and its objects. Only the
/// program that is linked to libavahi-client has it.
std::unique_ptr<AvahiApi> makeAvahiClientApi(AvahiClient& client);

/// The API of an mDNS responder within this process. `server` must outlive the API and its objects.
/// Only the program that is linked to libavahi-core has it.
std::unique_ptr<AvahiApi> makeAvahiServerApi(AvahiServer& server);

} // namespace quillbox::dnssd
