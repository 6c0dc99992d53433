#pragma once

#include <cstdint>
#include <string>

struct xcb_connection_t;

namespace quillbox {

/// Tells the desktop that what the user started has come up; until then it shows that something is
/// starting (Startup Notification Protocol of freedesktop.org). `token` is that of the launcher,
/// and without one nothing is said. The caller flushes the connection.
void endStartup(xcb_connection_t* connection, std::uint32_t window, std::uint32_t root,
                const std::string& token);

/// The same for a process that shows no window, over a connection of its own to the X server of the
/// environment; nothing where there is none. Waits for the server.
void endStartupWithoutWindow(const std::string& token);

} // namespace quillbox
