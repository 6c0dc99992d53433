#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace quillbox {

/// Records the updates passed to its handler, on any thread.
template <class Update> class Recorder final {
public:
    std::function<void(const Update&)> handler() const
    {
        return [shared = shared](const Update& update) {
            const std::lock_guard lock(shared->mutex);
            shared->updates.push_back(update);
        };
    }

    std::vector<Update> all() const
    {
        const std::lock_guard lock(shared->mutex);
        return shared->updates;
    }

    std::size_t count() const { return all().size(); }

    /// The last update, or a default-constructed one before the first.
    Update last() const
    {
        const std::lock_guard lock(shared->mutex);
        return shared->updates.empty() ? Update{} : shared->updates.back();
    }

    void clear()
    {
        const std::lock_guard lock(shared->mutex);
        shared->updates.clear();
    }

private:
    struct Shared {
        std::mutex mutex;
        std::vector<Update> updates;
    };

    std::shared_ptr<Shared> shared = std::make_shared<Shared>();
};

} // namespace quillbox
