#pragma once

#include "bench/histogram.h"

#include <string>

namespace quillbox::bench {

/// Members of a JSON object, without braces: the count, and percentiles in microseconds.
std::string told(const Histogram& times);

} // namespace quillbox::bench
