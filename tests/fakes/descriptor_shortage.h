#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace quillbox {

/// While it exists, this process can open only `left` more file descriptors.
class DescriptorShortage final {
public:
    explicit DescriptorShortage(rlim_t left = 0)
    {
        EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &usual_), 0);
        // The lowest number that is free.
        const int next = ::open("/", O_PATH | O_CLOEXEC);
        ::close(next);
        const rlimit few{.rlim_cur = static_cast<rlim_t>(next) + left, .rlim_max = usual_.rlim_max};
        EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    }
    ~DescriptorShortage() { lift(); }

    DescriptorShortage(const DescriptorShortage&) = delete;
    DescriptorShortage& operator=(const DescriptorShortage&) = delete;

    void lift() const { EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &usual_), 0); }

private:
    rlimit usual_{};
};

} // namespace quillbox
