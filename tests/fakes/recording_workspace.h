#pragma once

#include "platform/workspace.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quillbox {

/// Records the URLs that would be opened, and counts beeps. Reports at once that a URL was opened,
/// unless it is set to fail or to wait.
class RecordingWorkspace final : public Workspace {
public:
    void open(const std::string& url, const std::string& permission, Opened opened) override;
    void beep() override;

    std::vector<std::string> opened;
    std::vector<std::string> permissions; ///< of each of them
    std::optional<std::string> failure;   ///< the reason why nothing can be opened
    bool isWaiting = false;               ///< whether to report nothing, and to keep `reports`
    std::vector<Opened> reports;
    int beeps = 0;
    std::function<void()> opening; ///< if set, called before a URL is opened
};

} // namespace quillbox
