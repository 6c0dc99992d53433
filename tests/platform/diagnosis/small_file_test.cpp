#include "platform/diagnosis/small_file.h"

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace quillbox::diagnosis {

namespace {

namespace fs = std::filesystem;

class SmallFile : public ::testing::Test {
protected:
    SmallFile()
    {
        std::string pattern = fs::temp_directory_path() / "quillbox-XXXXXX";
        folder = ::mkdtemp(pattern.data());
    }
    ~SmallFile() override { fs::remove_all(folder); }

    fs::path folder;
};

TEST_F(SmallFile, isReadAsFarAsAllowed)
{
    std::ofstream(folder / "text") << "three words here";
    EXPECT_EQ(readSmallFile(folder / "text"), "three words here");
    EXPECT_EQ(readSmallFile(folder / "text", 5), "three");
}

TEST_F(SmallFile, isNothingElse)
{
    EXPECT_EQ(readSmallFile(folder), std::nullopt);
    EXPECT_EQ(readSmallFile(folder / "missing"), std::nullopt);
    // Opening it would wait for a writer.
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(readSmallFile(folder / "pipe"), std::nullopt);
}

} // namespace

} // namespace quillbox::diagnosis
