// Display of text that was chosen by hosts on the network.

#include "ui/shown_text.h"

#include <QChar>
#include <QTextDocument>
#include <Qt>
#include <algorithm>

#include "fuzz/harness.h"

namespace {

/// Whether it has no line or paragraph separators, control characters or bidirectional controls.
bool isOnOneLine(const QString& text)
{
    return std::none_of(text.begin(), text.end(), [](QChar c) {
        return c.category() == QChar::Other_Control || c.category() == QChar::Separator_Line
               || c.category() == QChar::Separator_Paragraph
               || (c.unicode() >= 0x202a && c.unicode() <= 0x202e)
               || (c.unicode() >= 0x2066 && c.unicode() <= 0x2069);
    });
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quillbox;
    const auto text = fuzz::textOf(data, size);
    for (const auto show : {shownText, shownInMenu, shownInToolTip})
        fuzz::require(isOnOneLine(show(text)), "on one line");
    fuzz::require(!Qt::mightBeRichText(shownInToolTip(text)), "no markup");
    fuzz::require(shownInMenu(text).count(u'&') % 2 == 0, "no mnemonic");
    return 0;
}
