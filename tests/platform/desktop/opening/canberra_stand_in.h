#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace quillbox {

/// What a test sees and sets of the stand-in for libcanberra.
struct CanberraStandIn {
    std::mutex mutex;
    std::condition_variable changed;
    bool hasServer = true;           ///< else no sound can be played
    bool answers = true;             ///< else a request blocks until this changes
    bool isSoundShort = true;        ///< else a sound goes on until its context is destroyed
    std::string missing;             ///< the event for which the sound theme has no sound
    std::vector<std::string> played; ///< the events for which a sound was requested
    int contexts = 0;                ///< created so far
    int destroyed = 0;
};

} // namespace quillbox
