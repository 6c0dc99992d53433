#include "app/app_delegate.h"
#include "ui/helper_style.h"

#include <QApplication>
#include <QColor>
#include <QPalette>
#include <QToolTip>

namespace quillbox {

namespace {

QPalette lightPalette()
{
    const QColor text(0x1c, 0x1c, 0x1c);
    const QColor window(0xf6, 0xf6, 0xf6);
    const QColor faint(0x6b, 0x6b, 0x6b);
    const QColor highlight(0x30, 0x8c, 0xc6);

    // The constructor derives the shades for frames and buttons.
    QPalette palette(window, window);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText,
                            QPalette::ToolTipText, QPalette::BrightText})
        palette.setColor(role, text);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, faint);
    palette.setColor(QPalette::Base, Qt::white);
    palette.setColor(QPalette::ToolTipBase, Qt::white);
    palette.setColor(QPalette::Highlight, highlight);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, highlight);
    palette.setColor(QPalette::LinkVisited, highlight);
    return palette;
}

} // namespace

/// Replaces the desktop's style, which may draw dark whatever the palette says.
void AppDelegate::forceLightAppearance()
{
    QApplication::setStyle(new HelperStyle);
    applyLightPalette();
}

/// Called again whenever the desktop's theme changes, because Qt then sets a palette for some
/// widget classes.
void AppDelegate::applyLightPalette()
{
    const QPalette palette = lightPalette();
    QApplication::setPalette(palette);
    QToolTip::setPalette(palette);
}

} // namespace quillbox
