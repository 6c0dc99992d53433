#pragma once

#include "ui/look/brand.h"

#include <QColor>
#include <QFont>
#include <QString>

class QLabel;
class QWidget;

namespace quillbox {

/// The look of a text: its size in logical pixels, so that it measures the same at every scale of
/// the screen, its weight, and its colour. The font family is the desktop's.
struct TextStyle {
    int size = 13;
    QFont::Weight weight = QFont::Normal;
    QColor colour{};

    /// Gives a label or a button this look; its font family keeps following the desktop's.
    void apply(QWidget& widget) const;
};

/// Of check boxes and fields.
inline constexpr TextStyle kControlText{.size = 13, .colour = Brand::navy};

/// Of push buttons.
inline constexpr TextStyle kButtonText{.size = 12, .weight = QFont::Medium, .colour = Brand::navy};

/// The distance of the base line below the middle of a line at which letters with ascenders and
/// letters with descenders, taken together, are centred. Independent of the font's own line height.
double baseLineBelowMiddle(const QFont& font);

/// The width that a line of text needs, in whole pixels: enough for its last letter to overhang its
/// advance, and rounded up. (QFontMetrics rounds to the nearest pixel.)
int widthOf(const QString& text, const QFont& font);

/// The text itself if it is at most that wide, according to `widthOf`; else as much of its
/// beginning as fits, and an ellipsis.
QString elided(const QString& text, const QFont& font, int width);

/// A single-line label without markup and mnemonics. It has no parent until it is added to a
/// layout.
QLabel* makeLabel(const QString& text, const TextStyle& style);

} // namespace quillbox
