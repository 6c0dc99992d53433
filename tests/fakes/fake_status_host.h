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
    }

    void become(bool isNowAvailable)
    {
        available = isNowAvailable;
        handler();
    }

    bool available = false;
    std::function<void()> handler;
};

} // namespace quillbox
