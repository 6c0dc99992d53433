#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

namespace quillbox {

/// Makes a system call (SYS_…) fail with the value `error` of `errno` on this thread, for as long
/// as the thread runs; if `first` is given, only where it is the first argument. False if that is
/// not permitted.
inline bool refuseCalls(long call, int error, std::optional<std::uint32_t> first = {})
{
    const auto number = static_cast<std::uint32_t>(call);
    const std::uint32_t place = first ? offsetof(seccomp_data, args) : offsetof(seccomp_data, nr);
    const auto result = SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error);
    std::array<sock_filter, 6> code{{
        {.code = BPF_LD | BPF_W | BPF_ABS, .jt = 0, .jf = 0, .k = offsetof(seccomp_data, nr)},
        {.code = BPF_JMP | BPF_JEQ | BPF_K, .jt = 0, .jf = 3, .k = number},
        {.code = BPF_LD | BPF_W | BPF_ABS, .jt = 0, .jf = 0, .k = place},
        {.code = BPF_JMP | BPF_JEQ | BPF_K, .jt = 0, .jf = 1, .k = first.value_or(number)},
        {.code = BPF_RET | BPF_K, .jt = 0, .jf = 0, .k = result},
        {.code = BPF_RET | BPF_K, .jt = 0, .jf = 0, .k = SECCOMP_RET_ALLOW},
    }};
    const sock_fprog program{.len = code.size(), .filter = code.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0
           && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0) == 0;
}

} // namespace quillbox
