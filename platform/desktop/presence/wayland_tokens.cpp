#include "platform/desktop/presence/activation_tokens.h"

#include <QGuiApplication>
#include <QLibraryInfo>
#include <QTimer>
#include <QVersionNumber>
#include <QWindow>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <qpa/qplatformnativeinterface.h>
#include <wayland-client.h>
#include <xdg-activation-v1-client-protocol.h>

namespace quillbox {

namespace {

constexpr std::chrono::milliseconds kLimit{400};

/// Gives access to Qt's objects of the protocol. Until Qt 6.5 there is no public interface to the
/// connection, and in no version one to the surface of a window, without which a compositor may
/// refuse a token. Null if another minor version of Qt is loaded than the one of the build: this
/// interface may change with each.
QPlatformNativeInterface* qtInterface()
{
    const bool isSame = QLibraryInfo::version().minorVersion() == QT_VERSION_MINOR;
    return isSame ? QGuiApplication::platformNativeInterface() : nullptr;
}

void* ofConnection(const char* resource)
{
    auto* native = qtInterface();
    return native ? native->nativeResourceForIntegration(resource) : nullptr;
}

wl_surface* surfaceOf(QWindow* window)
{
    auto* native = qtInterface();
    if (!native || !window)
        return nullptr;
    return static_cast<wl_surface*>(native->nativeResourceForWindow("surface", window));
}

/// One request. The compositor's answer arrives on the main thread, because Qt dispatches the
/// connection's default queue there.
class Request final {
public:
    Request(xdg_activation_v1* activation, ActivationTokens::Given whenGiven)
        : token(xdg_activation_v1_get_activation_token(activation)), given(std::move(whenGiven))
    {
        static constexpr xdg_activation_token_v1_listener kListener{.done = done};
        xdg_activation_token_v1_add_listener(token, &kListener, this);
        const auto serial = reinterpret_cast<std::uintptr_t>(ofConnection("serial"));
        auto* seat = static_cast<wl_seat*>(ofConnection("wl_seat"));
        if (seat && serial != 0) // 0: there has been no input
            xdg_activation_token_v1_set_serial(token, static_cast<std::uint32_t>(serial), seat);
        if (auto* surface = surfaceOf(QGuiApplication::focusWindow()))
            xdg_activation_token_v1_set_surface(token, surface);
        xdg_activation_token_v1_commit(token);
        limit.setSingleShot(true);
        QObject::connect(&limit, &QTimer::timeout, &limit, [this] { end({}); });
        limit.start(kLimit);
    }

    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;
    ~Request() { xdg_activation_token_v1_destroy(token); }

    bool isOver() const { return !given; }

private:
    static void done(void* data, xdg_activation_token_v1* /*token*/, const char* text)
    {
        static_cast<Request*>(data)->end(text);
    }

    void end(const std::string& text)
    {
        limit.stop();
        if (const auto handler = std::exchange(given, nullptr))
            handler(text);
    }

    xdg_activation_token_v1* const token;
    ActivationTokens::Given given;
    QTimer limit;
};

class WaylandTokens final : public ActivationTokens {
public:
    WaylandTokens() : display(static_cast<wl_display*>(ofConnection("wl_display")))
    {
        if (!display)
            return;
        registry = wl_display_get_registry(display);
        static constexpr wl_registry_listener kListener{.global = appeared,
                                                        .global_remove = disappeared};
        wl_registry_add_listener(registry, &kListener, this);
        wl_display_flush(display);
    }

    WaylandTokens(const WaylandTokens&) = delete;
    WaylandTokens& operator=(const WaylandTokens&) = delete;

    ~WaylandTokens() override
    {
        requests.clear();
        if (activation)
            xdg_activation_v1_destroy(activation);
        if (registry)
            wl_registry_destroy(registry);
    }

    void request(const std::string& permission, Given given) override
    {
        if (!permission.empty())
            return given(permission);
        if (!activation)
            return given({});
        std::erase_if(requests, [](const auto& each) { return each->isOver(); });
        requests.push_back(std::make_unique<Request>(activation, std::move(given)));
        wl_display_flush(display);
    }

private:
    static void appeared(void* data, wl_registry* registry, std::uint32_t name,
                         const char* interface, std::uint32_t /*version*/)
    {
        auto& self = *static_cast<WaylandTokens*>(data);
        if (!self.activation && std::strcmp(interface, xdg_activation_v1_interface.name) == 0)
            self.activation = static_cast<xdg_activation_v1*>(
                wl_registry_bind(registry, name, &xdg_activation_v1_interface, 1));
    }

    static void disappeared(void* /*data*/, wl_registry* /*registry*/, std::uint32_t /*name*/) {}

    wl_display* const display;
    wl_registry* registry = nullptr;
    xdg_activation_v1* activation = nullptr; ///< null: the compositor does not have the protocol
    std::vector<std::unique_ptr<Request>> requests;
};

} // namespace

std::unique_ptr<ActivationTokens> makeWaylandTokens()
{
    return std::make_unique<WaylandTokens>();
}

} // namespace quillbox
