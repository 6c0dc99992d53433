#include "ui/look/text_style.h"

#include <QFontInfo>
#include <QFontMetricsF>
#include <QLabel>
#include <QPalette>
#include <QTextLayout>
#include <QWidget>
#include <cmath>

namespace quillbox {

namespace {

/// Relative to the font size.
constexpr double kBaseLine = 0.32;

/// What QTextLayout compares with the width of a line to break it.
double lineWidth(const QString& text, const QFont& font)
{
    QTextLayout layout(text, font);
    layout.beginLayout();
    QTextLine line = layout.createLine();
    line.setLineWidth(QWIDGETSIZE_MAX);
    layout.endLayout();
    return line.naturalTextWidth();
}

} // namespace

void TextStyle::apply(QWidget& widget) const
{
    // Only what is set here is fixed; everything else follows the desktop's font.
    QFont font;
    font.setPixelSize(size);
    font.setWeight(weight);
    // Only these roles are set: the others are inherited.
    QPalette palette;
    for (const auto role : {QPalette::WindowText, QPalette::ButtonText, QPalette::Text})
        palette.setColor(role, colour);
    widget.setFont(font);
    widget.setPalette(palette);
}

double baseLineBelowMiddle(const QFont& font)
{
    return QFontInfo(font).pixelSize() * kBaseLine;
}

int widthOf(const QString& text, const QFont& font)
{
    return static_cast<int>(std::ceil(lineWidth(text, font)));
}

QString elided(const QString& text, const QFont& font, int width)
{
    const QFontMetricsF metrics(font);
    // elidedText() compares the advance with the width, without the overhang.
    const double overhang = lineWidth(text, font) - metrics.horizontalAdvance(text);
    return metrics.elidedText(text, Qt::ElideRight, width - overhang);
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
