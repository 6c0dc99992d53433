#pragma once

#include <cstdint>
#include <string>

struct xcb_connection_t;

namespace quillbox {

/// Tells the desktop that the program has started, which ends the desktop's busy indication
/// (Startup Notification Protocol of freedesktop.org). `token` is the launcher's; does nothing if
/// it is empty. The caller flushes the connection.
void endStartup(xcb_connection_t* connection, std::uint32_t window, std::uint32_t root,
                const std::string& token);

/// The same for a process that shows no window, over its own connection to the X server; does
/// nothing without an X server. Blocks until the server has replied.
void endStartupWithoutWindow(const std::string& token);

} // namespace quillbox
