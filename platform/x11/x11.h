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

/// Takes ownership of a reply or event from libxcb, which the caller has to free.
template <typename Reply> std::unique_ptr<Reply, Free> owned(Reply* reply)
{
    return std::unique_ptr<Reply, Free>(reply);
}

struct Disconnect {
    void operator()(xcb_connection_t* opened) const;
};

using Connection = std::unique_ptr<xcb_connection_t, Disconnect>;

/// The atom for a name; XCB_ATOM_NONE if the connection is broken.
std::uint32_t atom(xcb_connection_t* connection, std::string_view name);

/// The root window of a screen; XCB_WINDOW_NONE if there is no such screen.
std::uint32_t rootWindow(xcb_connection_t* connection, int screenNumber);

/// The current time of the X server of this process's display, later than that of any event so far.
/// Uses a separate connection. XCB_CURRENT_TIME if it fails or the time does not arrive within half
/// a second.
std::uint32_t serverTime();

} // namespace quillbox::x11
