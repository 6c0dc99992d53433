#include "tests/fakes/recording_workspace.h"

namespace quillbox {

void RecordingWorkspace::open(const std::string& url)
{
    if (opening)
        opening();
    opened.push_back(url);
}

void RecordingWorkspace::beep()
{
    ++beeps;
}

} // namespace quillbox
