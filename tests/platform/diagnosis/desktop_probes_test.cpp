#include "platform/diagnosis/desktop_probes.h"
#include "tests/platform/desktop/qt_support.h"
#include "tests/platform/desktop/x_server.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

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
    Environment environment;
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

TEST_F(DesktopProbes, dataFoldersAreTheAbsoluteOnesOfTheEnvironment)
{
    environment.set("XDG_DATA_DIRS", "/one:two::/three");
    EXPECT_EQ(systemDataFolders(), (std::vector<fs::path>{"/one", "/three"}));
    environment.set("XDG_DATA_DIRS", {});
    EXPECT_EQ(systemDataFolders(), (std::vector<fs::path>{"/usr/local/share", "/usr/share"}));
}

TEST_F(DesktopProbes, libraryFoldersIncludeThoseOfArchitectures)
{
    const auto found = systemLibraryFolders();
    for (const auto& each : fs::directory_iterator("/usr/lib")) {
        const bool isOfArchitecture =
            each.path().filename().string().find("-linux-") != std::string::npos;
        EXPECT_EQ(std::count(found.begin(), found.end(), each.path()), isOfArchitecture ? 1 : 0)
            << each.path();
    }
}

TEST_F(DesktopProbes, aDesktopHasADisplayOfEitherKind)
{
    environment.set("DISPLAY", {});
    environment.set("WAYLAND_DISPLAY", {});
    EXPECT_FALSE(isDesktopNamed());
    EXPECT_EQ(probeTray(), Seen::No);
    environment.set("WAYLAND_DISPLAY", "wayland-0");
    EXPECT_TRUE(isDesktopNamed());
    environment.set("WAYLAND_DISPLAY", {});
    environment.set("DISPLAY", "/nonexistent/display");
    EXPECT_TRUE(isDesktopNamed());
    EXPECT_EQ(probeTray(), Seen::Unknown) << "nobody answers there";
}

TEST_F(DesktopProbes, aTrayIsThereOnceSomeProgramManagesIt)
{
    const XServer server;
    EXPECT_EQ(probeTray(), Seen::No);
    const TrayManager manager;
    EXPECT_EQ(probeTray(), Seen::Yes);
}

} // namespace

} // namespace quillbox::diagnosis
