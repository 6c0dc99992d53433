// Runs a harness on every input in the given files and folders, instead of libFuzzer. It builds
// with any compiler and is the regression test for bugs that fuzzing has found.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/harness.h"

namespace {

std::vector<std::filesystem::path> casesIn(const std::filesystem::path& place)
{
    if (!std::filesystem::is_directory(place))
        return {place};
    std::vector<std::filesystem::path> cases;
    for (const auto& entry : std::filesystem::directory_iterator(place))
        cases.push_back(entry.path());
    std::ranges::sort(cases);
    return cases;
}

void replay(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    quillbox::fuzz::require(file.is_open(), path.c_str());
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    // A copy of exactly this size, so that AddressSanitizer detects reads beyond its end.
    const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

} // namespace

int main(int argumentCount, char** arguments)
{
    std::size_t count = 0;
    for (const char* place :
         std::span(arguments, static_cast<std::size_t>(argumentCount)).subspan(1)) {
        for (const auto& path : casesIn(place)) {
            replay(path);
            ++count;
        }
    }
    std::printf("%zu cases\n", count);
    return count > 0 ? 0 : 1;
}
