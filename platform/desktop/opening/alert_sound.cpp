#include "platform/desktop/opening/alert_sound.h"

#include "platform/posix/shared_library.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace quillbox {

namespace {

/// Enough for any bell. A sound server that accepts a sound may never report its end.
constexpr std::chrono::seconds kLongestSound{5};
constexpr std::chrono::milliseconds kLimitOfEnd{100};

/// The second one for sound themes without the first.
constexpr const char* kEvents[] = {"bell", "dialog-warning"};

/// What this program uses of libcanberra (canberra.h, interface version 0).
struct Canberra {
    struct Context;
    struct Properties;
    using Finished = void (*)(Context*, std::uint32_t id, int error, void* data);
    static constexpr int kSuccess = 0;

    explicit Canberra(const std::string& name)
    {
        SharedLibrary library(name.c_str());
        library.find(createContext, "ca_context_create");
        library.find(destroyContext, "ca_context_destroy");
        library.find(play, "ca_context_play_full");
        library.find(createProperties, "ca_proplist_create");
        library.find(destroyProperties, "ca_proplist_destroy");
        library.find(set, "ca_proplist_sets");
        isComplete = library.isComplete();
    }

    bool isComplete = false;
    int (*createContext)(Context**) = nullptr;
    int (*destroyContext)(Context*) = nullptr;
    int (*play)(Context*, std::uint32_t id, Properties*, Finished, void* data) = nullptr;
    int (*createProperties)(Properties**) = nullptr;
    int (*destroyProperties)(Properties*) = nullptr;
    int (*set)(Properties*, const char* key, const char* value) = nullptr;
};

} // namespace

/// One sound, from the request to its end.
struct AlertSound::Playback {
    std::mutex mutex;
    std::condition_variable changed;
    bool isFinished = false; ///< the sound was played, or is no longer wanted
    bool isOver = false;     ///< the thread is done

    void finish(bool Playback::*what)
    {
        const std::scoped_lock lock(mutex);
        this->*what = true;
        changed.notify_all();
    }

    bool waitFor(bool Playback::*what, std::chrono::milliseconds limit)
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, limit, [&] { return this->*what; });
    }

    /// On its own thread.
    void run(const std::string& libraryName)
    {
        const Canberra canberra(libraryName);
        Canberra::Context* context = nullptr;
        if (!canberra.isComplete || canberra.createContext(&context) != Canberra::kSuccess)
            return;
        for (const char* event : kEvents) {
            if (start(canberra, context, event) == Canberra::kSuccess) {
                waitFor(&Playback::isFinished, kLongestSound);
                break;
            }
        }
        canberra.destroyContext(context);
    }

private:
    int start(const Canberra& canberra, Canberra::Context* context, const char* event)
    {
        Canberra::Properties* properties = nullptr;
        if (const int error = canberra.createProperties(&properties); error != Canberra::kSuccess)
            return error;
        canberra.set(properties, "event.id", event);
        canberra.set(properties, "application.name", "Quillbox Helper");
        const auto finished = [](Canberra::Context*, std::uint32_t /*id*/, int /*error*/,
                                 void* self) {
            static_cast<Playback*>(self)->finish(&Playback::isFinished);
        };
        const int error = canberra.play(context, 1, properties, finished, this);
        canberra.destroyProperties(properties);
        return error;
    }
};

AlertSound::AlertSound(std::string libraryName) : library(std::move(libraryName)) {}

AlertSound::~AlertSound()
{
    if (!playback)
        return;
    playback->finish(&Playback::isFinished);
    playback->waitFor(&Playback::isOver, kLimitOfEnd);
}

void AlertSound::play()
{
    if (playback && !playback->waitFor(&Playback::isOver, {}))
        return;
    playback = std::make_shared<Playback>();
    try {
        std::thread([playback = playback, library = library] {
            playback->run(library);
            playback->finish(&Playback::isOver);
        }).detach();
    } catch (const std::system_error&) {
        playback = nullptr; // no thread, no sound
    }
}

} // namespace quillbox
