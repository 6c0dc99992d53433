#include "tests/platform/dnssd/engines/test_network.h"

#include <gmock/gmock.h>

// The tests run this program as peers as well. Multicast DNS traffic stays in
// private network namespaces.
int main(int argc, char** argv)
{
    using namespace quillbox::dnssd;

    if (isPeer(argc, argv))
        return runPeer(argc, argv);

    enterPrivateNetwork(argc, argv);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
