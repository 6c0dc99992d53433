#include "platform/dnssd/engine/message_codec.h"

#include <random>
#include <string>

#include <gtest/gtest.h>

namespace quillbox::dnssd {

namespace {

Address ipv6(std::uint8_t last)
{
    Address address;
    address.family = Family::IPv6;
    address.bytes = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, last};
    return address;
}

constexpr Generation kGeneration = 0x01020304;

Address ipv4()
{
    Address address;
    address.bytes = {192, 168, 1, 2};
    return address;
}

std::vector<Request> everyRequest()
{
    return {
        BrowseRequest{1, "_smb._tcp"},
        BrowseRequest{0, ""},
        LocationRequest{2, {"Quillbox é\n", "_quillbox._tcp", "local"}},
        AddressRequest{3, "phone.local", Family::IPv6},
        RegisterRequest{4,
                        "Name",
                        "_smb._tcp",
                        65535,
                        std::string("host\0.local", 11),
                        {{7, ipv4()}, {-1, ipv6(9)}},
                        1,
                        true},
        UpdateAddressesRequest{0xffffffff, {{1, ipv4()}}},
        UpdateAddressesRequest{5, {}},
        StopRequest{6},
    };
}

std::vector<Event> everyEvent()
{
    const Sighting sighting{3, Family::IPv6};
    return {
        EngineUp{"my-pc.local"},
        EngineDown{make_error_code(DnsSdError::EngineUnavailable)},
        ServiceAnswer{1, Change::Found, sighting, {"a.b\\c", "_smb._tcp", "local"}},
        ServiceAnswer{2, Change::Lost, sighting, {"x", "_smb._tcp", "local"}},
        LocationAnswer{3, Change::Found, sighting, {"phone.local", 4445}},
        LocationAnswer{4, Change::Lost, sighting, {"phone.local", 0}},
        AddressAnswer{5, Change::Found, sighting, ipv6(1)},
        AddressAnswer{6, Change::Lost, sighting, ipv4()},
        Settled{7},
        Registered{8},
        Collision{9, Collision::Of::Host},
        Failed{10, DnsSdError::Internal},
        Alive{},
    };
}

TEST(MessageCodec, givesBackEveryRequest)
{
    for (const Request& request : everyRequest())
        EXPECT_EQ(decodeRequest(encode(kGeneration, request)),
                  (Message<Request>{kGeneration, request}))
            << "kind " << request.index();
}

TEST(MessageCodec, givesBackEveryEvent)
{
    for (const Event& event : everyEvent())
        EXPECT_EQ(decodeEvent(encode(kGeneration, event)), (Message<Event>{kGeneration, event}))
            << "kind " << event.index();
}

TEST(MessageCodec, knowsEveryKind)
{
    std::vector<bool> requests(std::variant_size_v<Request>);
    for (const Request& request : everyRequest())
        requests[request.index()] = true;
    EXPECT_EQ(requests, std::vector<bool>(requests.size(), true));
    std::vector<bool> events(std::variant_size_v<Event>);
    for (const Event& event : everyEvent())
        events[event.index()] = true;
    EXPECT_EQ(events, std::vector<bool>(events.size(), true));
}

TEST(MessageCodec, refusesAMessageCutOffAnywhere)
{
    for (const Request& request : everyRequest()) {
        const Packet packet = encode(kGeneration, request);
        for (std::size_t length = 0; length < packet.size(); ++length)
            EXPECT_FALSE(decodeRequest(std::span(packet).first(length))) << length;
    }
    for (const Event& event : everyEvent()) {
        const Packet packet = encode(kGeneration, event);
        for (std::size_t length = 0; length < packet.size(); ++length)
            EXPECT_FALSE(decodeEvent(std::span(packet).first(length))) << length;
    }
}

TEST(MessageCodec, refusesWhatFollowsAMessage)
{
    for (const Request& request : everyRequest()) {
        Packet packet = encode(kGeneration, request);
        packet.push_back(0);
        EXPECT_FALSE(decodeRequest(packet));
    }
}

TEST(MessageCodec, refusesUnknownKindsAndValues)
{
    EXPECT_FALSE(decodeRequest(Packet{std::variant_size_v<Request>, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_FALSE(decodeEvent(Packet{std::variant_size_v<Event>, 0, 0, 0, 0, 0, 0, 0, 0}));

    Packet kind = encode(kGeneration, Request(BrowseRequest{1, "_smb._tcp"}));
    ASSERT_EQ(kind.front(), 0);
    kind.front() = std::variant_size_v<Request>;
    EXPECT_FALSE(decodeRequest(kind));

    Packet family = encode(kGeneration, Request(AddressRequest{1, "h", Family::IPv6}));
    family.back() = 2;
    EXPECT_FALSE(decodeRequest(family));
    Packet collision = encode(kGeneration, Event(Collision{1, Collision::Of::Host}));
    collision.back() = 2;
    EXPECT_FALSE(decodeEvent(collision));
    Packet error = encode(kGeneration, Event(Failed{1, DnsSdError::Internal}));
    error.back() = 0;
    EXPECT_FALSE(decodeEvent(error));
    error.back() = 200;
    EXPECT_FALSE(decodeEvent(error));
}

TEST(MessageCodec, doesNotBelieveACount)
{
    Packet packet = encode(kGeneration, Request(UpdateAddressesRequest{1, {}}));
    packet[packet.size() - 2] = 0xff;
    packet[packet.size() - 1] = 0xff;
    EXPECT_FALSE(decodeRequest(packet));
}

TEST(MessageCodec, makesNothingOfAMessageThatIsTooLong)
{
    EXPECT_TRUE(encode(kGeneration, Request(BrowseRequest{1, std::string(65'536, 'x')})).empty());
    EXPECT_TRUE(encode(kGeneration, Request(BrowseRequest{1, std::string(65'535, 'x')})).empty());
    EXPECT_FALSE(encode(kGeneration, Request(BrowseRequest{1, std::string(60'000, 'x')})).empty());
    EXPECT_TRUE(
        encode(kGeneration, Request(UpdateAddressesRequest{1, std::vector<HostAddress>(66'000)}))
            .empty());
    EXPECT_FALSE(decodeRequest(Packet(kMaximumPacketLength + 1)));
}

TEST(MessageCodec, survivesGarbage)
{
    std::mt19937 random(20241); // NOLINT(cert-msc51-cpp): the same garbage each time
    std::uniform_int_distribution<int> anyByte(0, 255);
    std::size_t understood = 0;
    for (int round = 0; round < 20'000; ++round) {
        Packet packet(static_cast<std::size_t>(round % 80));
        for (std::uint8_t& byte : packet)
            byte = static_cast<std::uint8_t>(anyByte(random));
        if (!packet.empty())
            packet[0] = static_cast<std::uint8_t>(packet[0] % 13);
        if (const auto event = decodeEvent(packet)) {
            ++understood;
            EXPECT_EQ(encode(event->generation, event->content), packet);
        }
        if (const auto request = decodeRequest(packet)) {
            ++understood;
            EXPECT_EQ(encode(request->generation, request->content), packet);
        }
    }
    EXPECT_GT(understood, 0U);
}

} // namespace

} // namespace quillbox::dnssd
