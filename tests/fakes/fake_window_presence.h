#pragma once

#include "platform/window_presence.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace quillbox {

/// A desktop with one window, whose state is set by a test, and which records calls.
class FakeWindowPresence final : public WindowPresence {
public:
    bool canOpenMenuAnywhere() const override { return menusAnywhere; }

    void setListed(WindowIdentifier /*window*/, bool isListed) override { listed = isListed; }

    std::string takePermissionOfPanel() override { return std::exchange(ofPanel, {}); }

    void bringForward(WindowIdentifier /*window*/, const std::string& permission,
                      const std::function<void()>& show) override
    {
        permissions.push_back(permission);
        if (log)
            log->emplace_back("window.bringForward");
        if (isObeyed)
            show();
    }

    bool menusAnywhere = true;
    bool isObeyed = true; ///< else the desktop does not bring the window forward
    bool listed = true;
    std::string ofPanel;
    std::vector<std::string> permissions;    ///< one for each call of bringForward
    std::vector<std::string>* log = nullptr; ///< if set, records calls of bringForward
};

} // namespace quillbox
