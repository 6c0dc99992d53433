#include "platform/desktop/presence/startup_notification.h"
#include "platform/desktop/presence/window_presence.h"
#include "platform/x11/x11.h"

#include <QtGlobal>
#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <set>
#include <span>
#include <string_view>
#include <vector>

#include <xcb/xcb.h>

namespace quillbox {

namespace {

using x11::owned;

constexpr std::uint32_t kOnAllWorkspaces = 0xFFFFFFFF;
constexpr std::uint32_t kMostStates = 64;

/// The source indication of a request: a window manager may refuse a request of an application that
/// would disturb the user, but honours one of a pager, which acts for the user.
constexpr std::uint32_t kAsProgram = 1;
constexpr std::uint32_t kForUser = 2;

constexpr std::uint32_t kRemoveState = 0;
constexpr std::uint32_t kAddState = 1;

bool isXServerInsideWayland(xcb_connection_t* connection)
{
    constexpr std::string_view kExtension = "XWAYLAND";
    const auto reply = owned(xcb_query_extension_reply(
        connection, xcb_query_extension(connection, kExtension.size(), kExtension.data()),
        nullptr));
    // Before version 23.1, Xwayland does not have the extension. There only the environment tells:
    // compositors set this variable for the programs that they start.
    return (reply && reply->present != 0) || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

class X11Presence final : public WindowPresence {
public:
    explicit X11Presence(xcb_connection_t* toolkitConnection)
        : connection(toolkitConnection),
          isInsideWayland(isXServerInsideWayland(toolkitConnection)),
          state(atom("_NET_WM_STATE")),
          skipped{atom("_NET_WM_STATE_SKIP_TASKBAR"), atom("_NET_WM_STATE_SKIP_PAGER")},
          workspace(atom("_NET_WM_DESKTOP")),
          currentWorkspace(atom("_NET_CURRENT_DESKTOP")),
          managerState(atom("WM_STATE")),
          activeWindow(atom("_NET_ACTIVE_WINDOW"))
    {
    }

    /// An X server inside a Wayland compositor knows where the pointer is, and can grab it, only
    /// while it is over a window of an X client.
    bool canOpenMenuAnywhere() const override { return !isInsideWayland; }

    void setListed(WindowIdentifier window, bool isListed) override
    {
        if (isListed)
            unlisted.erase(window);
        else
            unlisted.insert(window);
        // The window manager may be about to manage it, and have read the property already.
        if (!isManaged(windowOf(window)))
            writeListing(windowOf(window));
        askForListing(windowOf(window));
        xcb_flush(connection);
    }

    std::string takePermissionOfPanel() override { return {}; }

    void bringForward(WindowIdentifier identifier, const std::string& permission,
                      const std::function<void()>& show) override
    {
        const xcb_window_t window = windowOf(identifier);
        const xcb_window_t root = rootOf(window);
        // Fetched early: if the user minimises the window as soon as it appears, the activation
        // must carry an earlier time, so that it does not undo that.
        const auto now = x11::serverTime();
        // Before the activation: otherwise the window manager switches to the window's workspace.
        const auto own = number(window, workspace);
        const auto current = number(root, currentWorkspace);
        if (isManaged(window) && own && current && own != kOnAllWorkspaces && own != current)
            ask(window, workspace, {*current, kForUser});
        // The window manager removes the states of a window that is withdrawn.
        if (!isManaged(window))
            writeListing(window);
        show();
        askForListing(window);
        ask(window, activeWindow, {kForUser, now, XCB_WINDOW_NONE});
        endStartup(connection, window, root, permission);
        xcb_flush(connection);
    }

private:
    using Data = std::array<std::uint32_t, 5>;

    static xcb_window_t windowOf(WindowIdentifier window)
    {
        return static_cast<xcb_window_t>(window);
    }

    std::uint32_t atom(std::string_view name) const { return x11::atom(connection, name); }

    xcb_window_t rootOf(xcb_window_t window) const
    {
        const auto reply = owned(
            xcb_get_geometry_reply(connection, xcb_get_geometry(connection, window), nullptr));
        return reply ? reply->root : xcb_window_t(XCB_WINDOW_NONE);
    }

    using Property = std::unique_ptr<xcb_get_property_reply_t, x11::Free>;

    Property property(xcb_window_t window, std::uint32_t name) const
    {
        const auto cookie =
            xcb_get_property(connection, 0, window, name, XCB_ATOM_ANY, 0, kMostStates);
        return owned(xcb_get_property_reply(connection, cookie, nullptr));
    }

    /// The 32-bit values of a property; empty if there is no such property.
    static std::span<const std::uint32_t> numbers(const Property& property)
    {
        if (!property || property->format != 32)
            return {};
        return {static_cast<const std::uint32_t*>(xcb_get_property_value(property.get())),
                property->value_len};
    }

    std::optional<std::uint32_t> number(xcb_window_t window, std::uint32_t name) const
    {
        const auto held = property(window, name);
        const auto all = numbers(held);
        return all.empty() ? std::nullopt : std::optional(all.front());
    }

    /// Whether the window manager manages the window, and hence its states (ICCCM,
    /// section 4.1.3.1).
    bool isManaged(xcb_window_t window) const
    {
        constexpr std::uint32_t kWithdrawn = 0;
        return number(window, managerState).value_or(kWithdrawn) != kWithdrawn;
    }

    /// Writes the states that the window manager reads when it starts to manage the window.
    void writeListing(xcb_window_t window) const
    {
        std::vector<std::uint32_t> states;
        const auto held = property(window, state);
        for (const std::uint32_t each : numbers(held)) {
            if (std::find(skipped.begin(), skipped.end(), each) == skipped.end())
                states.push_back(each);
        }
        if (unlisted.contains(window))
            std::copy(skipped.begin(), skipped.end(), std::back_inserter(states));
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, state, XCB_ATOM_ATOM, 32,
                            static_cast<std::uint32_t>(states.size()), states.data());
    }

    void askForListing(xcb_window_t window) const
    {
        const std::uint32_t change = unlisted.contains(window) ? kAddState : kRemoveState;
        ask(window, state, {change, skipped[0], skipped[1], kAsProgram});
    }

    /// Sends the window manager a request about the window.
    void ask(xcb_window_t window, std::uint32_t kind, const Data& data) const
    {
        xcb_client_message_event_t message{};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = window;
        message.type = kind;
        std::copy(data.begin(), data.end(), message.data.data32);
        xcb_send_event(connection, 0, rootOf(window),
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&message));
    }

    xcb_connection_t* const connection;
    const bool isInsideWayland;
    const std::uint32_t state;
    const std::array<std::uint32_t, 2> skipped;
    const std::uint32_t workspace;
    const std::uint32_t currentWorkspace;
    const std::uint32_t managerState;
    const std::uint32_t activeWindow;
    std::set<WindowIdentifier> unlisted;
};

} // namespace

std::unique_ptr<WindowPresence> makeX11Presence(xcb_connection_t* toolkitConnection)
{
    return std::make_unique<X11Presence>(toolkitConnection);
}

} // namespace quillbox
