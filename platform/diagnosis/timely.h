#pragma once

#include <chrono>
#include <exception>
#include <future>
#include <system_error>
#include <thread>
#include <utility>

namespace quillbox::diagnosis {

/// Work on a thread of its own whose result is taken only if it comes in time: what asks other
/// programs may be stuck with them. A thread that is late is left alone, so the work refers to
/// nothing that could go away.
template <typename Result> class Timely final {
public:
    template <typename Work> explicit Timely(Work work)
    {
        std::packaged_task<Result()> task(std::move(work));
        result_ = task.get_future();
        try {
            std::thread(std::move(task)).detach();
        } catch (const std::system_error&) {
            // Without a thread the task is dropped, and the future knows that no result comes.
        }
    }

    /// Waits for the result until `end`; gives `otherwise` when it is late, or failed. Once.
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

    /// Whether the thread still ran when its result was to be taken.
    bool isLate() const { return isLate_; }

private:
    std::future<Result> result_;
    bool isLate_ = false;
};

} // namespace quillbox::diagnosis
