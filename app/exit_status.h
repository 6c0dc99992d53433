#pragma once

/// Exit statuses of the program, for scripts: all are documented, and no number changes its
/// meaning.
namespace quillbox::exit_status {

inline constexpr int kDone = 0;
/// A file or the output could not be written, the start at login could not be changed, or a check
/// failed.
inline constexpr int kFailed = 1;
inline constexpr int kUsage = 2;        ///< the command line is invalid
inline constexpr int kNotRunning = 3;   ///< there is no running instance to send a command to
inline constexpr int kRefused = 4;      ///< the running instance or the desktop refused
inline constexpr int kUnknownPhone = 5; ///< the running instance knows no phone of that name
inline constexpr int kNoAnswer = 6; ///< the running instance does not respond, or not as expected

} // namespace quillbox::exit_status
