#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

struct xcb_connection_t;

namespace quillbox::x11 {

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};

/// What the X library gives is freed by the caller.
template <typename Reply> std::unique_ptr<Reply, Free> owned(Reply* reply)
{
    return std::unique_ptr<Reply, Free>(reply);
}

struct Disconnect {
    void operator()(xcb_connection_t* opened) const;
};

using Connection = std::unique_ptr<xcb_connection_t, Disconnect>;

/// The number that stands for a name; none of a broken connection.
std::uint32_t atom(xcb_connection_t* connection, std::string_view name);

/// The root window of a screen; none when there is no such screen.
std::uint32_t rootWindow(xcb_connection_t* connection, int screenNumber);

/// What time it is for the X server of this process's display, which is newer than any event. It is
/// asked on a connection of its own. XCB_CURRENT_TIME when it does not answer in half a second.
std::uint32_t serverTime();

} // namespace quillbox::x11
