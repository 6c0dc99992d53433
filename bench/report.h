#pragma once

#include "bench/histogram.h"

#include <string>

namespace quillbox::bench {

/// Members of a JSON object: how many, and the percentiles in microseconds.
std::string told(const Histogram& times);

} // namespace quillbox::bench
