#pragma once

#include "platform/network_view.h"

#include <functional>
#include <utility>

namespace quillbox {

/// A network view whose availability is set by a test.
class FakeNetworkView final : public NetworkView {
public:
    bool isAvailable() const override { return available; }
    void setChangedHandler(std::function<void()> newHandler) override
    {
        handler = std::move(newHandler);
    }

    void become(bool isNowAvailable)
    {
        available = isNowAvailable;
        if (handler)
            handler();
    }

    bool available = true;
    std::function<void()> handler;
};

} // namespace quillbox
