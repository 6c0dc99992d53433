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
    bool isOnCurrentWorkspace(WindowIdentifier /*window*/) const override { return onWorkspace; }

    void setListed(WindowIdentifier /*window*/, bool isListed) override { listed = isListed; }

    void permit(std::string permission) override { permitted = std::move(permission); }

    void bringForward(WindowIdentifier /*window*/, const std::function<void()>& show) override
    {
        permissions.push_back(std::exchange(permitted, {}));
        if (log)
            log->emplace_back("window.bringForward");
        show();
        onWorkspace = true;
    }

    bool onWorkspace = true;
    bool listed = true;
    std::string permitted;
    std::vector<std::string> permissions;    ///< one for each call of bringForward
    std::vector<std::string>* log = nullptr; ///< if set, records calls of bringForward
};

} // namespace quillbox
