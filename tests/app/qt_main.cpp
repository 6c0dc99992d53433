#include <QApplication>

#include <gmock/gmock.h>

/// Tests of the user interface run on Qt's offscreen platform, without a display.
int main(int argumentCount, char** arguments)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    ::testing::InitGoogleMock(&argumentCount, arguments);
    const QApplication application(argumentCount, arguments);
    return RUN_ALL_TESTS();
}
