#include "platform/dnssd/engine_child.h"
#include "tests/platform/dnssd/engines/test_network.h"

#include <cstring>

#include <gmock/gmock.h>

#ifdef __SANITIZE_THREAD__
// libdbus locks the parts of a connection in more than one order, on one thread.
extern "C" const char* __tsan_default_suppressions()
{
    return "deadlock:libdbus-1.so\n";
}
#endif

// The tests start engine processes, which are this executable, and put multicast DNS on networks of
// their own.
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
