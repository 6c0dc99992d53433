#include "platform/desktop/tray_manager_watch.h"
#include "tests/platform/desktop_integration/event_wait.h"

#include <QByteArray>
#include <QProcess>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <gtest/gtest.h>
#include <xcb/xcb.h>

namespace quillbox {

namespace {

/// Owns the system tray selection of screen 0 until it is destroyed.
class Manager final {
public:
    Manager() : connection(xcb_connect(nullptr, nullptr))
    {
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
        window = xcb_generate_id(connection);
        xcb_create_window(connection, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
        const xcb_atom_t selection = atom("_NET_SYSTEM_TRAY_S0");
        xcb_set_selection_owner(connection, window, selection, XCB_CURRENT_TIME);
        xcb_client_message_event_t message{};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = screen->root;
        message.type = atom("MANAGER");
        message.data.data32[1] = selection;
        message.data.data32[2] = window;
        xcb_send_event(connection, 0, screen->root, XCB_EVENT_MASK_STRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&message));
        atom("the server has got this far");
    }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;
    ~Manager() { xcb_disconnect(connection); }

private:
    xcb_atom_t atom(const char* name)
    {
        const auto cookie =
            xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(std::strlen(name)), name);
        xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(connection, cookie, nullptr);
        const xcb_atom_t result = reply->atom;
        std::free(reply);
        return result;
    }

    xcb_connection_t* const connection;
    xcb_window_t window = XCB_WINDOW_NONE;
};

class TrayManagerWatchTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        server.setStandardErrorFile(QProcess::nullDevice());
        server.start(QStringLiteral("Xvfb"),
                     {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"),
                      QStringLiteral("0"), QStringLiteral("64x64x24"), QStringLiteral("-nolisten"),
                      QStringLiteral("tcp"), QStringLiteral("-noreset")});
        while (!server.canReadLine())
            ASSERT_TRUE(server.waitForReadyRead(10'000)) << "no X server";
        qputenv("DISPLAY", ':' + server.readLine().trimmed());
    }

    void TearDown() override
    {
        server.kill();
        server.waitForFinished();
        if (before.isNull())
            qunsetenv("DISPLAY");
        else
            qputenv("DISPLAY", before);
    }

    bool becomes(bool hasManager)
    {
        return waitUntil([&] { return watch->hasManager() == hasManager; });
    }

    void makeWatch()
    {
        watch = std::make_unique<TrayManagerWatch>([this] { ++changes; });
    }

    const QByteArray before = qgetenv("DISPLAY");
    QProcess server;
    std::unique_ptr<TrayManagerWatch> watch;
    int changes = 0;
};

TEST_F(TrayManagerWatchTest, findsAManagerThatIsThere)
{
    const Manager manager;
    makeWatch();
    EXPECT_TRUE(watch->hasManager());
    EXPECT_EQ(changes, 0);
}

TEST_F(TrayManagerWatchTest, hearsOfAManagerThatComesGoesAndComesBack)
{
    makeWatch();
    EXPECT_FALSE(watch->hasManager());
    auto manager = std::make_unique<Manager>();
    EXPECT_TRUE(becomes(true));
    manager.reset();
    EXPECT_TRUE(becomes(false));
    manager = std::make_unique<Manager>();
    EXPECT_TRUE(becomes(true));
    EXPECT_EQ(changes, 3);
}

TEST_F(TrayManagerWatchTest, staysWithTheManagerThatTakesOver)
{
    auto first = std::make_unique<Manager>();
    makeWatch();
    const Manager second;
    first.reset();
    auto third = std::make_unique<Manager>();
    third.reset();
    EXPECT_TRUE(becomes(false)) << "the last one took the selection away";
}

TEST_F(TrayManagerWatchTest, knowsNoManagerOnceTheDisplayIsGone)
{
    const Manager manager;
    makeWatch();
    server.kill();
    EXPECT_TRUE(becomes(false));
    EXPECT_EQ(changes, 1);
}

TEST_F(TrayManagerWatchTest, mayBeDroppedByWhoeverHearsOfTheChange)
{
    bool isTold = false;
    watch = std::make_unique<TrayManagerWatch>([&] {
        watch.reset();
        isTold = true;
    });
    const Manager manager;
    EXPECT_TRUE(waitUntil([&] { return isTold; }));
}

TEST_F(TrayManagerWatchTest, knowsNoManagerWithoutADisplay)
{
    qputenv("DISPLAY", ":none");
    makeWatch();
    EXPECT_FALSE(watch->hasManager());
}

} // namespace

} // namespace quillbox
