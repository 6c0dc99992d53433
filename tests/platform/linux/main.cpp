#include "platform/dnssd/processes/engine_child.h"

#include <QCoreApplication>
#include <cstdlib>
#include <cstring>

#include <gmock/gmock.h>

/// The tests start this program as an engine process, too.
int main(int argumentCount, char** arguments)
{
    using namespace quillbox::dnssd;

    if (argumentCount == 2 && std::strcmp(arguments[1], kEngineChildOption) == 0)
        return runDnsSdEngineChild(kEngineChildDescriptor);
    // The tests neither ask nor disturb the daemons of this computer.
    for (const char* variable : {"DBUS_SYSTEM_BUS_ADDRESS", "DBUS_SESSION_BUS_ADDRESS"})
        ::setenv(variable, "unix:path=/nonexistent/bus", 1);
    ::testing::InitGoogleMock(&argumentCount, arguments);
    const QCoreApplication application(argumentCount, arguments);
    return RUN_ALL_TESTS();
}
