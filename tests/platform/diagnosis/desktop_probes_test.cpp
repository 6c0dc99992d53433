#include "platform/diagnosis/desktop_probes.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace quillbox::diagnosis {

namespace {

namespace fs = std::filesystem;

class DesktopProbes : public ::testing::Test {
public:
    DesktopProbes(const DesktopProbes&) = delete;
    DesktopProbes& operator=(const DesktopProbes&) = delete;

protected:
    DesktopProbes()
    {
        std::string pattern = fs::temp_directory_path() / "quillbox-XXXXXX";
        folder = ::mkdtemp(pattern.data());
    }
    ~DesktopProbes() override { fs::remove_all(folder); }

    void make(const std::string& path)
    {
        fs::create_directories((folder / path).parent_path());
        std::ofstream(folder / path) << "x";
    }

    FileBrowserFacts probe() const
    {
        return probeFileBrowser({folder / "share"}, {folder / "lib"});
    }

    fs::path folder;
};

TEST_F(DesktopProbes, nothingIsFoundWhereNothingIs)
{
    make("share/gvfs/mounts/sftp.mount");
    EXPECT_FALSE(probe().hasGvfs);
    EXPECT_FALSE(probe().hasKio);
}

TEST_F(DesktopProbes, theBackendOfGvfsIsFound)
{
    make("share/gvfs/mounts/smb.mount");
    EXPECT_TRUE(probe().hasGvfs);
    EXPECT_FALSE(probe().hasKio);
}

TEST_F(DesktopProbes, thePluginOfEachGenerationOfKioIsFound)
{
    for (const char* path : {"lib/qt5/plugins/kf5/kio/smb.so", "lib/qt6/plugins/kf6/kio/smb.so"}) {
        make(path);
        EXPECT_TRUE(probe().hasKio) << path;
        EXPECT_FALSE(probe().hasGvfs);
        fs::remove_all(folder / "lib");
    }
}

} // namespace

} // namespace quillbox::diagnosis
