#pragma once

/// How the program ends, for scripts: each number is documented, and none changes its meaning.
namespace quillbox::exit_status {

inline constexpr int kDone = 0;
inline constexpr int kFailed = 1; ///< a file or the output could not be written, or a check fails
inline constexpr int kUsage = 2;  ///< the command line was not understood
inline constexpr int kNotRunning = 3;   ///< there is no running copy to give a command to
inline constexpr int kRefused = 4;      ///< the running copy could not do it, and told why
inline constexpr int kUnknownPhone = 5; ///< the running copy knows no phone of that name
inline constexpr int kNoAnswer = 6;     ///< the running copy does not answer, or not as expected

} // namespace quillbox::exit_status
