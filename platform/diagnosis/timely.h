#pragma once

#include <chrono>
#include <exception>
#include <future>
#include <system_error>
#include <thread>
#include <utility>

namespace quillbox::diagnosis {

/// Runs work on its own thread and takes the result only if it arrives in time, because work that
/// calls other programs may hang with them. A late thread keeps running detached, so the work must
/// not refer to anything that may be destroyed.
template <typename Result> class Timely final {
public:
    template <typename Work> explicit Timely(Work work)
    {
        std::packaged_task<Result()> task(std::move(work));
        result_ = task.get_future();
        try {
            std::thread(std::move(task)).detach();
        } catch (const std::system_error&) {
            // Without a thread the task is destroyed, and the future reports a broken promise.
        }
    }

    /// Waits for the result until `end`; returns `otherwise` if it is late or the work failed. Call
    /// it only once.
    Result take(std::chrono::steady_clock::time_point end, Result otherwise)
    {
        isLate_ = result_.wait_until(end) != std::future_status::ready;
        if (isLate_)
            return otherwise;
        try {
            return result_.get();
        } catch (const std::exception&) {
            return otherwise;
        }
    }

    /// Whether take() timed out.
    bool isLate() const { return isLate_; }

private:
    std::future<Result> result_;
    bool isLate_ = false;
};

} // namespace quillbox::diagnosis
