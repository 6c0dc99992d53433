#include "app/app_delegate.h"

#include <QApplication>
#include <QColor>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>

namespace quillbox {

namespace {

QPalette lightPalette()
{
    const QColor text(0x1c, 0x1c, 0x1c);
    const QColor window(0xef, 0xef, 0xef);
    const QColor faint(0x93, 0x93, 0x93);
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
    palette.setColor(QPalette::ToolTipBase, QColor(0xff, 0xff, 0xdc));
    palette.setColor(QPalette::PlaceholderText, faint);
    palette.setColor(QPalette::Highlight, highlight);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, highlight);
    return palette;
}

} // namespace

/// A desktop's own style may draw dark whatever the palette says, so the toolkit's own is taken.
void AppDelegate::forceLightAppearance()
{
    if (QStyle* style = QStyleFactory::create(QStringLiteral("Fusion")))
        QApplication::setStyle(style);
    QApplication::setPalette(lightPalette());
}

} // namespace quillbox
