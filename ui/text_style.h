#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>
#include <QString>

class QLabel;
class QWidget;

namespace quillbox {

/// How a text looks: its height in logical pixels, so that it measures the same at every scale of
/// the screen, its weight, and its colour. The family is the desktop's.
struct TextStyle {
    int size = 13;
    QFont::Weight weight = QFont::Normal;
    QColor colour;

    QFont font() const;

    /// Gives a label or a button this look; the family follows the desktop's from then on.
    void apply(QWidget& widget) const;
};

/// A style made ready for many texts.
class PreparedTextStyle final {
public:
    explicit PreparedTextStyle(const TextStyle& style);

    void apply(QWidget& widget) const;

private:
    const QFont font;
    const QPalette palette;
};

/// What push buttons, check boxes and fields are written in.
inline constexpr int kControlTextSize = 13;

/// How far below the middle of a line its base line is for letters to stand in the middle, those
/// with ascenders and those with descenders taken together, whatever the family leaves around them.
double baseLineBelowMiddle(const QFont& font);

/// A label of one line, without markup and mnemonics. Whoever puts it into a layout owns it.
QLabel* makeLabel(const QString& text, const TextStyle& style);

} // namespace quillbox
