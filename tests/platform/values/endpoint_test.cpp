#include "platform/values/endpoint.h"

#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {
namespace {

TEST(Endpoint, isEitherAHostOrAService)
{
    const Endpoint host = HostEndpoint{"192.0.2.1", 4445};
    EXPECT_EQ(host.service(), nullptr);
    ASSERT_NE(host.host(), nullptr);
    EXPECT_EQ(host.host()->port, 4445);

    const Endpoint service = ServiceEndpoint{"Quillbox", "_quillbox._tcp", "local"};
    EXPECT_EQ(service.host(), nullptr);
    ASSERT_NE(service.service(), nullptr);
    EXPECT_EQ(service.service()->name, "Quillbox");
}

TEST(Endpoint, printsTheSameForEqualEndpointsAndDiffersForOthers)
{
    const std::vector<Endpoint> endpoints = {
        HostEndpoint{"192.0.2.1", 4445},
        HostEndpoint{"192.0.2.1", 445},
        HostEndpoint{"192.0.2.1:4445", 445},
        HostEndpoint{"", 0},
        HostEndpoint{"2001:db8::1", 445},
        HostEndpoint{"a/b", 1},
        ServiceEndpoint{"Quillbox", "_quillbox._tcp", "local"},
        ServiceEndpoint{"Quillbox", "_quillbox._tcp", "local%eth0"},
        ServiceEndpoint{"Quillbox", "_quillbox._tcp", "example.org"},
        ServiceEndpoint{"Quillbox", "_quillbox._tcp/local", ""},
        ServiceEndpoint{"Quillbox", "_quillbox-admin._tcp", "local"},
        ServiceEndpoint{"Quillbox A", "_quillbox._tcp", "local"},
        ServiceEndpoint{"Quillbox.A", "_quillbox._tcp", "local"},
        ServiceEndpoint{"Quillbox", "A._quillbox._tcp", "local"},
        ServiceEndpoint{"Quillbox\\", "A._quillbox._tcp", "local"},
        ServiceEndpoint{"Quillbox\n", "_quillbox._tcp", "local"},
        ServiceEndpoint{"Quillbox\\010", "_quillbox._tcp", "local"},
        ServiceEndpoint{"e\xcc\x81", "_quillbox._tcp", "local"},
        ServiceEndpoint{"\xc3\xa9", "_quillbox._tcp", "local"},
        ServiceEndpoint{"", "", ""},
        ServiceEndpoint{"", "", ":1"},
    };
    std::set<std::string> descriptions;
    for (const Endpoint& endpoint : endpoints) {
        EXPECT_EQ(endpoint.description(), Endpoint(endpoint).description());
        EXPECT_TRUE(descriptions.insert(endpoint.description()).second) << endpoint.description();
    }
    for (std::size_t a = 0; a < endpoints.size(); ++a)
        for (std::size_t b = 0; b < endpoints.size(); ++b)
            EXPECT_EQ(endpoints[a] == endpoints[b], a == b);
}

TEST(Endpoint, printsTheSeparatorsThatAPartContainsBehindABackslash)
{
    EXPECT_EQ(
        Endpoint(ServiceEndpoint{.name = "a.b:c%d\\e/f", .type = "_t/y._tcp", .domain = "x:y"})
            .description(),
        R"(a\.b\:c\%d\\e/f._t\/y._tcp/x\:y)");
}

TEST(Endpoint, printsOnOneLineWithoutControlCharacters)
{
    const std::string text =
        Endpoint(ServiceEndpoint{"a\r\n\x1b[31m\x7f", "_t._tcp", "lo\ncal\t"}).description();
    for (const char character : text) {
        EXPECT_GE(static_cast<unsigned char>(character), 0x20);
        EXPECT_NE(character, '\x7f');
    }
}

} // namespace
} // namespace quillbox
