#include <QCoreApplication>
#include <cstdlib>

#include <gmock/gmock.h>

int main(int argumentCount, char** arguments)
{
    // The tests neither ask nor disturb the daemons of this computer.
    for (const char* variable : {"DBUS_SYSTEM_BUS_ADDRESS", "DBUS_SESSION_BUS_ADDRESS"})
        ::setenv(variable, "unix:path=/nonexistent/bus", 1);
    ::testing::InitGoogleMock(&argumentCount, arguments);
    const QCoreApplication application(argumentCount, arguments);
    return RUN_ALL_TESTS();
}
