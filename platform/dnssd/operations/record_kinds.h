#pragma once

#include "platform/dnssd/engine/messages.h"

#include <cstdint>
#include <string>

namespace quillbox::dnssd {

/// The location of a service, from its SRV record.
struct Location {
    std::string hostName;
    std::uint16_t port = 0;
};

/// The traits of the two kinds of record queries: the subject of the query, and the value found.
/// Subjects with the same key share one query.
struct LocationKind {
    struct Subject {
        std::string name;
        std::string type;
        std::string domain;
    };
    using Value = Location;
    using Found = LocationFound;
    using Lost = LocationLost;

    static std::string key(const Subject& subject);
    static Request request(const Subject& subject);
    template <class Answer> static Value value(const Answer& answer)
    {
        return {answer.hostName, answer.port};
    }
    static bool isSame(const Value& a, const Value& b);
};

struct AddressKind {
    struct Subject {
        std::string hostName;
        Family family = Family::IPv4;
    };
    using Value = Address;
    using Found = AddressFound;
    using Lost = AddressLost;

    static std::string key(const Subject& subject);
    static Request request(const Subject& subject);
    template <class Answer> static Value value(const Answer& answer) { return answer.address; }
    static bool isSame(const Value& a, const Value& b) { return a == b; }
};

} // namespace quillbox::dnssd
