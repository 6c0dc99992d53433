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

    // The constructor derives the shades that frames and buttons are drawn with.
    QPalette palette(window, window);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText,
                            QPalette::ToolTipText, QPalette::BrightText})
        palette.setColor(role, text);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, faint);
    palette.setColor(QPalette::Base, Qt::white);
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::ToolTipBase, Qt::white);
    palette.setColor(QPalette::PlaceholderText, faint);
    palette.setColor(QPalette::Highlight, highlight);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, highlight);
    palette.setColor(QPalette::LinkVisited, highlight);
    return palette;
}

} // namespace

/// A desktop's own style may draw dark whatever the palette says, so another is taken.
void AppDelegate::forceLightAppearance()
{
    QApplication::setStyle(new HelperStyle);
    applyLightPalette();
}

/// Again whenever the desktop's theme changes, which gives some classes palettes of their own.
void AppDelegate::applyLightPalette()
{
    const QPalette palette = lightPalette();
    QApplication::setPalette(palette);
    QToolTip::setPalette(palette);
}

} // namespace quillbox
