#include "app/smb_url.h"

#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using namespace std::string_view_literals;

std::string urlOf(std::string_view user, std::string_view host, std::string_view share)
{
    return smbUrl({.user = user, .host = host, .share = share}).value_or("none");
}

/// U+202E, right-to-left override; built from bytes, as a literal would reorder the source text.
std::string turn()
{
    return {'\xE2', '\x80', '\xAE'};
}

TEST(SmbUrl, joinsUserHostAndShare)
{
    EXPECT_EQ(urlOf("nas", "Office._smb._tcp.local", "NAS"),
              "smb://nas@Office._smb._tcp.local/NAS");
}

TEST(SmbUrl, hasNoUserPartWithoutAUser)
{
    EXPECT_EQ(urlOf("", "Quillbox._smb._tcp.local", "NAS"), "smb://Quillbox._smb._tcp.local/NAS");
}

TEST(SmbUrl, encodesABlankInTheHostAndKeepsItsCase)
{
    EXPECT_EQ(urlOf("nas", "Quillbox Office._smb._tcp.local", "NAS"),
              "smb://nas@Quillbox%20Office._smb._tcp.local/NAS");
}

TEST(SmbUrl, writesTheBytesOfOtherLettersWithoutNormalisingThem)
{
    EXPECT_EQ(urlOf("", "Küche", "Büro"), "smb://K%C3%BCche/B%C3%BCro");
    EXPECT_EQ(urlOf("", "Ku\u0308che", "NAS"), "smb://Ku%CC%88che/NAS");
    EXPECT_EQ(urlOf("", "Quillbox 📱", "NAS"), "smb://Quillbox%20%F0%9F%93%B1/NAS");
}

TEST(SmbUrl, encodesWhatWouldEndAPart)
{
    EXPECT_EQ(urlOf("a@b:c/d", "h/o?s#t@x:1[2]", "s?h#are"),
              "smb://a%40b%3Ac%2Fd@h%2Fo%3Fs%23t%40x%3A1%5B2%5D/s%3Fh%23are");
}

TEST(SmbUrl, keepsWhatIsOnlyData)
{
    EXPECT_EQ(urlOf("A&B", "Tom & Jerry's", "A&B@home: 50+1"),
              "smb://A&B@Tom%20&%20Jerry's/A&B@home:%2050+1");
}

TEST(SmbUrl, takesAPercentSignForItself)
{
    EXPECT_EQ(urlOf("%00", "100%", "%2F%"), "smb://%2500@100%25/%252F%25");
}

TEST(SmbUrl, keepsTheFoldersOfAShare)
{
    EXPECT_EQ(urlOf("", "Office", "NAS/photos//2024/"), "smb://Office/NAS/photos//2024/");
    EXPECT_EQ(urlOf("", "Office", R"(NAS\photos)"), "smb://Office/NAS%5Cphotos");
}

TEST(SmbUrl, encodesWhatCannotBeSeen)
{
    EXPECT_EQ(urlOf("", "Office" + turn() + "gpj", "a\nb\x7f"),
              "smb://Office%E2%80%AEgpj/a%0Ab%7F");
}

TEST(SmbUrl, takesTheLongestNameOfAService)
{
    const std::string name(63, 'x');
    EXPECT_EQ(urlOf("", name + "._smb._tcp.local", "NAS"),
              "smb://" + name + "._smb._tcp.local/NAS");
}

TEST(SmbUrl, isNoneForNulAndForBytesThatAreNotUtf8)
{
    EXPECT_EQ(urlOf("", "Office", "NA\0S"sv), "none");
    EXPECT_EQ(urlOf("", "Off\0ice"sv, "NAS"), "none");
    EXPECT_EQ(urlOf("n\0as"sv, "Office", "NAS"), "none");
    EXPECT_EQ(urlOf("", "Office", "\xff"), "none");
    EXPECT_EQ(urlOf("", "\xed\xa0\x80", "NAS"), "none");
    EXPECT_EQ(urlOf("\xc3", "Office", "NAS"), "none");
}

TEST(SmbUrl, isNoneWithoutAHost)
{
    EXPECT_EQ(urlOf("nas", "", "NAS"), "none");
}

} // namespace

} // namespace quillbox
