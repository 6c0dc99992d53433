// URLs of shares: built from the input of users and phones.

#include "app/smb_url.h"

#include <algorithm>
#include <string>

#include "fuzz/harness.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quillbox;
    const auto text = fuzz::textOf(data, size);
    auto rest = text;
    const auto user = fuzz::takePart(rest);
    const auto host = fuzz::takePart(rest);
    if (const auto url = smbUrl({.user = user, .host = host, .share = rest})) {
        fuzz::require(std::ranges::all_of(*url, [](char c) { return c > ' ' && c < '\x7f'; }),
                      "a URL is printable ASCII");
    }
    return 0;
}
