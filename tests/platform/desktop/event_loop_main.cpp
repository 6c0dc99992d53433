#include <QCoreApplication>

#include <gmock/gmock.h>

/// The tests run Qt's event loop, so they need a QCoreApplication.
int main(int argumentCount, char** arguments)
{
    ::testing::InitGoogleMock(&argumentCount, arguments);
    const QCoreApplication application(argumentCount, arguments);
    return RUN_ALL_TESTS();
}
