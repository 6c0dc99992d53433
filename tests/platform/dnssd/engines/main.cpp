#include "platform/dnssd/processes/engine_child.h"
#include "tests/platform/dnssd/engines/test_network.h"

#include <cstring>

#include <gmock/gmock.h>

#ifdef __SANITIZE_THREAD__
// libdbus takes the locks of a connection in inconsistent order, but on a single thread.
extern "C" const char* __tsan_default_suppressions()
{
    return "deadlock:libdbus-1.so\n";
}
#endif

// The tests run this program as engine processes and peers as well. Multicast DNS traffic stays in
// private network namespaces.
int main(int argc, char** argv)
{
    using namespace quillbox::dnssd;

    if (argc == 2 && std::strcmp(argv[1], kEngineChildOption) == 0)
        return runDnsSdEngineChild(kEngineChildDescriptor);
    if (isPeer(argc, argv))
        return runPeer(argc, argv);

    enterPrivateNetwork(argc, argv);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
