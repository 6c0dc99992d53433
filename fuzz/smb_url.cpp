// URLs of shares: built from the input of users and phones, and parsed when they are opened.

#include "app/smb_url.h"

#include "platform/desktop/opening/smb_location.h"

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
        const auto read = parseSmbUrl(*url);
        fuzz::require(read.has_value(), "a URL that was built can be parsed");
        fuzz::require(read->host == host, "the host is the same");
        fuzz::require(read->user.value_or("") == user, "the user is the same");
    }
    if (const auto location = parseSmbUrl(text)) {
        smbInstanceName(location->host);
        const auto moved = parseSmbUrl(smbUrlAt(*location, {"192.0.2.1", 4445}));
        fuzz::require(moved && moved->host == "192.0.2.1" && moved->port == 4445
                          && moved->user == location->user && moved->path == location->path,
                      "with another address it is the same share");
    }
    smbInstanceName(text);
    return 0;
}
