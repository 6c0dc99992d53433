#include "tests/platform/tcp/scripted_names.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string_view>
#include <utility>

#include <dlfcn.h>
#include <netdb.h>
#include <sys/socket.h>

namespace quillbox {

namespace {

using LookupFunction = int (*)(const char*, const char*, const addrinfo*, addrinfo**);

/// Outlives every test, because lookups run on detached threads.
struct NameScript {
    std::mutex mutex;
    std::condition_variable changed;
    bool isActive = false;
    std::size_t lookups = 0;
    int lastFlags = 0;
    std::deque<std::vector<std::string>> answers;
};

NameScript& nameScript()
{
    static auto* const script = new NameScript;
    return *script;
}

/// The function of the C library.
int systemLookup(const char* name, const char* service, const addrinfo* hints, addrinfo** found)
{
    static const auto function =
        reinterpret_cast<LookupFunction>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    return function(name, service, hints, found);
}

int scriptedLookup(const addrinfo* asked, addrinfo** found)
{
    auto& script = nameScript();
    std::vector<std::string> answer;
    {
        std::unique_lock lock(script.mutex);
        ++script.lookups;
        script.lastFlags = asked != nullptr ? asked->ai_flags : 0;
        script.changed.notify_all();
        script.changed.wait(lock, [&] { return !script.isActive || !script.answers.empty(); });
        if (script.answers.empty())
            return EAI_AGAIN;
        answer = std::move(script.answers.front());
        script.answers.pop_front();
    }
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST;
    *found = nullptr;
    // freeaddrinfo() frees a list item by item, so lists can be joined.
    for (auto address = answer.rbegin(); address != answer.rend(); ++address) {
        addrinfo* item = nullptr;
        if (systemLookup(address->c_str(), nullptr, &hints, &item) != 0)
            continue;
        item->ai_next = std::exchange(*found, item);
    }
    return *found == nullptr ? EAI_NONAME : 0;
}

bool isScripted(const char* name, const addrinfo* hints)
{
    // A test of the syntax, not a lookup.
    if (hints != nullptr && (hints->ai_flags & AI_NUMERICHOST) != 0)
        return false;
    auto& script = nameScript();
    const std::lock_guard lock(script.mutex);
    return script.isActive && name != nullptr && std::string_view(name) == kScriptedName;
}

} // namespace

ScriptedNames::ScriptedNames()
{
    auto& script = nameScript();
    const std::lock_guard lock(script.mutex);
    script.isActive = true;
    script.lookups = 0;
    script.answers.clear();
}

ScriptedNames::~ScriptedNames()
{
    auto& script = nameScript();
    const std::lock_guard lock(script.mutex);
    script.isActive = false;
    script.answers.clear();
    script.changed.notify_all();
}

bool ScriptedNames::waitForLookups(std::size_t count, std::chrono::milliseconds limit) const
{
    auto& script = nameScript();
    std::unique_lock lock(script.mutex);
    return script.changed.wait_for(lock, limit, [&] { return script.lookups >= count; });
}

int ScriptedNames::lastFlags() const
{
    auto& script = nameScript();
    const std::lock_guard lock(script.mutex);
    return script.lastFlags;
}

void ScriptedNames::answer(std::vector<std::string> addresses)
{
    auto& script = nameScript();
    const std::lock_guard lock(script.mutex);
    script.answers.push_back(std::move(addresses));
    script.changed.notify_all();
}

} // namespace quillbox

/// Takes the place of the C library's function in the test program.
extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                           addrinfo** found)
{
    return quillbox::isScripted(name, hints) ? quillbox::scriptedLookup(hints, found)
                                             : quillbox::systemLookup(name, service, hints, found);
}
