#pragma once

#include <future>
#include <memory>
#include <semaphore>
#include <string>

namespace quillbox {

/// The "bell" of the desktop's sound theme (Sound Naming Specification of freedesktop.org), played
/// by libcanberra, which is loaded when it is first needed. Silent where there is no libcanberra,
/// no sound theme or no sound server.
///
/// Used on one thread, which it never blocks: libcanberra looks for files and waits for the sound
/// server on a thread of its own.
class AlertSound final {
public:
    explicit AlertSound(std::string libraryName = "libcanberra.so.0");
    AlertSound(const AlertSound&) = delete;
    AlertSound& operator=(const AlertSound&) = delete;

    /// Ends the sound. Waits a tenth of a second at most, and then leaves the thread to itself.
    ~AlertSound();

    /// Returns at once. Does nothing while the previous sound is played.
    void play();

private:
    const std::string library;
    std::shared_ptr<std::counting_semaphore<>> ends; ///< of the last sound; shared with its thread
    std::future<void> playback;                      ///< ready when that thread is done
};

} // namespace quillbox
