#pragma once

#include "platform/dispatch_queue.h"

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace quillbox::dnssd {

/// Delivers updates to a caller on its queue, except those equal to the one before.
template <class Update> class Report final {
public:
    using Handler = std::function<void(const Update&)>;

    Report(std::shared_ptr<DispatchQueue> handlerQueue, Handler updateHandler)
        : queue(std::move(handlerQueue)),
          handler(std::make_shared<const Handler>(std::move(updateHandler)))
    {
    }

    void deliver(Update update)
    {
        if (last && *last == update)
            return;
        last = update;
        queue->async([handler = handler, update = std::move(update)] { (*handler)(update); });
    }

private:
    const std::shared_ptr<DispatchQueue> queue;
    const std::shared_ptr<const Handler> handler;
    std::optional<Update> last;
};

} // namespace quillbox::dnssd
