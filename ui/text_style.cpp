#include "ui/text_style.h"

#include <QFontInfo>
#include <QLabel>
#include <QPalette>
#include <QWidget>

namespace quillbox {

namespace {

/// Of the size of a font.
constexpr double kBaseLine = 0.32;

} // namespace

QFont TextStyle::font() const
{
    // Only what is set here is fixed: everything else is looked up anew when the desktop changes.
    QFont result;
    result.setPixelSize(size);
    result.setWeight(weight);
    return result;
}

void TextStyle::apply(QWidget& widget) const
{
    widget.setFont(font());
    QPalette palette;
    for (const auto role : {QPalette::WindowText, QPalette::ButtonText, QPalette::Text})
        palette.setColor(role, colour);
    widget.setPalette(palette);
}

double baseLineBelowMiddle(const QFont& font)
{
    return QFontInfo(font).pixelSize() * kBaseLine;
}

QLabel* makeLabel(const QString& text, const TextStyle& style)
{
    auto* label = new QLabel;
    label->setTextFormat(Qt::PlainText);
    label->setText(text);
    style.apply(*label);
    return label;
}

} // namespace quillbox
