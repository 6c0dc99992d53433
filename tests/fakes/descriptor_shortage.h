#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace quillbox {

/// While it exists, this process cannot open any file.
class DescriptorShortage final {
public:
    DescriptorShortage()
    {
        EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &usual_), 0);
        const rlimit none{.rlim_cur = 0, .rlim_max = usual_.rlim_max};
        EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    }
    ~DescriptorShortage() { EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &usual_), 0); }

    DescriptorShortage(const DescriptorShortage&) = delete;
    DescriptorShortage& operator=(const DescriptorShortage&) = delete;

private:
    rlimit usual_{};
};

} // namespace quillbox
