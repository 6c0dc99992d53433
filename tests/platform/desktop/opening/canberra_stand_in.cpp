// A library with the functions of libcanberra that the program uses. Plays nothing, and usually
// reports the end of a sound as soon as the request has returned.

#include "tests/platform/desktop/opening/canberra_stand_in.h"

#include <cstdint>
#include <map>
#include <string>
#include <thread>

namespace {

constexpr int kSuccess = 0;
constexpr int kNotFound = -9;
constexpr int kNotAvailable = -12;

quillbox::CanberraStandIn& standIn()
{
    static quillbox::CanberraStandIn instance;
    return instance;
}

} // namespace

// NOLINTBEGIN(readability-identifier-naming): the names are libcanberra's.
struct ca_context {
    std::thread sound;
};

struct ca_proplist {
    std::map<std::string, std::string> values;
};

extern "C" {

quillbox::CanberraStandIn* canberra_stand_in()
{
    return &standIn();
}

int ca_context_create(ca_context** context)
{
    const std::scoped_lock lock(standIn().mutex);
    ++standIn().contexts;
    *context = new ca_context;
    standIn().changed.notify_all();
    return kSuccess;
}

int ca_context_destroy(ca_context* context)
{
    if (context->sound.joinable())
        context->sound.join();
    delete context;
    const std::scoped_lock lock(standIn().mutex);
    ++standIn().destroyed;
    standIn().changed.notify_all();
    return kSuccess;
}

int ca_proplist_create(ca_proplist** properties)
{
    *properties = new ca_proplist;
    return kSuccess;
}

int ca_proplist_destroy(ca_proplist* properties)
{
    delete properties;
    return kSuccess;
}

int ca_proplist_sets(ca_proplist* properties, const char* key, const char* value)
{
    properties->values[key] = value;
    return kSuccess;
}

int ca_context_play_full(ca_context* context, std::uint32_t id, ca_proplist* properties,
                         void (*finished)(ca_context*, std::uint32_t, int, void*), void* data)
{
    std::unique_lock lock(standIn().mutex);
    standIn().changed.wait(lock, [] { return standIn().answers; });
    if (!standIn().hasServer)
        return kNotAvailable;
    const std::string event = properties->values["event.id"];
    if (event == standIn().missing)
        return kNotFound;
    standIn().played.push_back(event);
    standIn().changed.notify_all();
    if (standIn().isSoundShort)
        context->sound = std::thread([=] { finished(context, id, kSuccess, data); });
    return kSuccess;
}

} // extern "C"
// NOLINTEND(readability-identifier-naming)
