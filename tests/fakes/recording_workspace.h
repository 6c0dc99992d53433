#pragma once

#include "platform/workspace.h"

#include <functional>
#include <string>
#include <vector>

namespace quillbox {

/// Records the URLs that would be opened, and counts beeps.
class RecordingWorkspace final : public Workspace {
public:
    void open(const std::string& url) override;
    void beep() override;

    std::vector<std::string> opened;
    int beeps = 0;
    std::function<void()> opening; ///< if set, called before a URL is opened
};

} // namespace quillbox
