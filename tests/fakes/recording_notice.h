#pragma once

#include "platform/notice.h"

#include <string>
#include <utility>
#include <vector>

namespace quillbox {

/// Records notices as "TITLE: TEXT", and keeps what reports their delivery.
class RecordingNotice final : public Notice {
public:
    void show(const std::string& title, const std::string& text, Delivered delivered) override
    {
        shown.push_back(title + ": " + text);
        deliveries.push_back(std::move(delivered));
    }

    std::vector<std::string> shown;
    std::vector<Delivered> deliveries; ///< of each of them; may be null
};

} // namespace quillbox
