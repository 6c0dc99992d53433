#include "app/app_delegate.h"

#include <QPointer>
#include <algorithm>
#include <utility>

namespace quillbox {

void AppDelegate::openManagement(const std::string& permission)
{
    if (managementDevices.size() == 1)
        return resolveManagement(managementDevices.front().endpoint, {.permission = permission});
    if (managementDevices.empty())
        explainWebManagement(permission);
    else
        popUpManagementMenu(permission);
}

void AppDelegate::openManagementMenu(const QAction& item)
{
    openManagementOf(item.data());
}

void AppDelegate::openNamedManagement(const QPushButton& button)
{
    openManagementOf(button.property(kManagementIdentifier));
}

/// `name` is stored in a menu item or a button. Does nothing if that phone is no longer there, or
/// if the value is missing or invalid, which converts to an empty name that no phone has.
void AppDelegate::openManagementOf(const QVariant& name)
{
    const std::string wanted = name.toByteArray().toStdString();
    const auto device = std::find_if(managementDevices.begin(), managementDevices.end(),
                                     [&wanted](const DiscoveredDevice& candidate) {
                                         return canonicallyEqual(candidate.name, wanted);
                                     });
    if (device != managementDevices.end())
        resolveManagement(device->endpoint);
}

void AppDelegate::resolveManagement(const Endpoint& endpoint, ManagementRequest request)
{
    if (managementResolver)
        managementResolver->cancel();
    const auto before = std::exchange(managementRequest, std::move(request));
    if (before.opened)
        before.opened("Another request to open web management came after this one");
    // Kept alive by this variable: start() may report at once, which resets managementResolver.
    const auto resolver = std::make_shared<ManagementResolver>(
        environment.network, endpoint,
        [self = QPointer(this)](const std::optional<std::string>& url) {
            if (self)
                self->managementResolved(url);
        });
    managementResolver = resolver;
    resolver->start();
}

void AppDelegate::managementResolved(const std::optional<std::string>& url)
{
    managementResolver = nullptr;
    const auto request = std::exchange(managementRequest, {});
    if (url) {
        environment.workspace.open(*url, request.permission, request.opened);
        return;
    }
    constexpr const char* kNotResolved =
        "Could not resolve management address. Check the phone is online.";
    setStatus({.ready = false, .text = kNotResolved});
    if (request.opened)
        request.opened(kNotResolved);
}

} // namespace quillbox
