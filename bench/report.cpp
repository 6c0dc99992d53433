#include "bench/report.h"

#include <sstream>

namespace quillbox::bench {

std::string told(const Histogram& times)
{
    const auto microseconds = [&times](double share) {
        return static_cast<double>(times.percentile(share).count()) / 1000;
    };
    std::ostringstream text;
    text << "\"count\": " << times.count() << ", \"p50\": " << microseconds(0.5)
         << ", \"p99\": " << microseconds(0.99) << ", \"p999\": " << microseconds(0.999);
    return text.str();
}

} // namespace quillbox::bench
