#include "platform/desktop/opening/alert_sound.h"

#include <chrono>
#include <cstdint>
#include <system_error>
#include <thread>
#include <utility>

#include <dlfcn.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;

/// Enough for any bell. A sound server that accepts a sound may never report its end.
constexpr std::chrono::seconds kLongestSound{5};
constexpr std::chrono::milliseconds kLimitOfEnd{100};

/// The second one for sound themes without the first.
constexpr const char* kEvents[] = {"bell", "dialog-warning"};

/// What this program uses of libcanberra (canberra.h, interface version 0), which stays loaded
/// until the process ends.
struct Canberra {
    struct Context;
    struct Properties;
    using Finished = void (*)(Context*, std::uint32_t id, int error, void* data);
    static constexpr int kSuccess = 0;

    explicit Canberra(const std::string& name)
    {
        void* library = ::dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
        const auto find = [library]<typename F>(F*& function, const char* symbol) {
            function = library ? reinterpret_cast<F*>(::dlsym(library, symbol)) : nullptr;
            return function != nullptr;
        };
        isComplete =
            find(createContext, "ca_context_create") && find(destroyContext, "ca_context_destroy")
            && find(play, "ca_context_play_full") && find(createProperties, "ca_proplist_create")
            && find(destroyProperties, "ca_proplist_destroy") && find(set, "ca_proplist_sets");
    }

    bool isComplete = false;
    int (*createContext)(Context**) = nullptr;
    int (*destroyContext)(Context*) = nullptr;
    int (*play)(Context*, std::uint32_t id, Properties*, Finished, void* data) = nullptr;
    int (*createProperties)(Properties**) = nullptr;
    int (*destroyProperties)(Properties*) = nullptr;
    int (*set)(Properties*, const char* key, const char* value) = nullptr;
};

int start(const Canberra& canberra, Canberra::Context* context, const char* event,
          std::counting_semaphore<>& ends)
{
    Canberra::Properties* properties = nullptr;
    if (const int error = canberra.createProperties(&properties); error != Canberra::kSuccess)
        return error;
    canberra.set(properties, "event.id", event);
    canberra.set(properties, "application.name", "Quillbox Helper");
    const auto finished = [](Canberra::Context*, std::uint32_t /*id*/, int /*error*/, void* data) {
        static_cast<std::counting_semaphore<>*>(data)->release();
    };
    const int error = canberra.play(context, 1, properties, finished, &ends);
    canberra.destroyProperties(properties);
    return error;
}

/// On its own thread.
void playWith(const std::string& libraryName, std::counting_semaphore<>& ends)
{
    const Canberra canberra(libraryName);
    Canberra::Context* context = nullptr;
    if (!canberra.isComplete || canberra.createContext(&context) != Canberra::kSuccess)
        return;
    for (const char* event : kEvents) {
        if (start(canberra, context, event, ends) == Canberra::kSuccess) {
            static_cast<void>(ends.try_acquire_for(kLongestSound));
            break;
        }
    }
    canberra.destroyContext(context);
}

} // namespace

AlertSound::AlertSound(std::string libraryName) : library(std::move(libraryName)) {}

AlertSound::~AlertSound()
{
    if (!playback.valid())
        return;
    ends->release();
    playback.wait_for(kLimitOfEnd);
}

void AlertSound::play()
{
    if (playback.valid() && playback.wait_for(0s) != std::future_status::ready)
        return;
    ends = std::make_shared<std::counting_semaphore<>>(0);
    std::packaged_task<void()> task([ends = ends, library = library] { playWith(library, *ends); });
    playback = task.get_future();
    try {
        std::thread(std::move(task)).detach();
    } catch (const std::system_error&) {
        playback = {}; // no thread, no sound
    }
}

} // namespace quillbox
