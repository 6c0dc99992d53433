#include <QCoreApplication>

#include <gmock/gmock.h>

/// The tests wait in Qt's event loop.
int main(int argumentCount, char** arguments)
{
    ::testing::InitGoogleMock(&argumentCount, arguments);
    const QCoreApplication application(argumentCount, arguments);
    return RUN_ALL_TESTS();
}
