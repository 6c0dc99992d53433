#include "tests/fakes/recording_workspace.h"

#include <utility>

namespace quillbox {

void RecordingWorkspace::open(const std::string& url, const std::string& permission,
                              Opened whenOpened)
{
    if (opening)
        opening();
    opened.push_back(url);
    permissions.push_back(permission);
    if (isWaiting)
        reports.push_back(std::move(whenOpened));
    else if (whenOpened)
        whenOpened(failure);
}

void RecordingWorkspace::beep()
{
    ++beeps;
}

} // namespace quillbox
