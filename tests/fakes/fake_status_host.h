#pragma once

#include "platform/status_host.h"

#include <functional>
#include <utility>

namespace quillbox {

/// A status host whose availability is set by a test.
class FakeStatusHost final : public StatusHost {
public:
    bool isAvailable() const override { return available; }
    void setChangedHandler(std::function<void()> newHandler) override
    {
        handler = std::move(newHandler);
        if (handler && watched)
            watched();
    }

    void become(bool isNowAvailable)
    {
        available = isNowAvailable;
        handler();
    }

    bool available = false;
    std::function<void()> handler;
    std::function<void()> watched; ///< if set, called when a handler is set
};

} // namespace quillbox
