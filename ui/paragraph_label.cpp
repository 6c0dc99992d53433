#include "ui/paragraph_label.h"

#include "ui/look/text_style.h"
#include "ui/shown_text.h"

#include <QEvent>
#include <QFontInfo>
#include <QFontMetricsF>
#include <QPainter>
#include <QStyle>
#include <QTextLayout>
#include <algorithm>
#include <cmath>

namespace quillbox {

namespace {

/// Relative to the font size. The line heights of font families differ, up to 1.4 for the sake of
/// scripts with stacked marks.
constexpr double kLineHeight = 1.2;

/// Where the lines of the text begin if it is wrapped.
std::vector<int> broken(const QString& text, const QFont& font, int width)
{
    QTextLayout layout(text, font);
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setTextOption(option);
    std::vector<int> starts;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width);
        starts.push_back(line.textStart());
    }
    layout.endLayout();
    return starts;
}

} // namespace

ParagraphLabel::ParagraphLabel(const QString& text, QWidget* parent) : QLabel(parent)
{
    setTextFormat(Qt::PlainText);
    setWordWrap(true);
    setText(text);
}

void ParagraphLabel::setText(const QString& text)
{
    QLabel::setText(text);
    knownTextWidth.reset();
    updateToolTip();
}

void ParagraphLabel::setMaximumLines(int count)
{
    limit = count;
    // The height of a single line does not depend on the width, which saves the layout some work.
    setWordWrap(count != 1);
}

std::vector<QString> ParagraphLabel::lines() const
{
    const int width = contentsRect().width();
    if (limit == 1)
        return {elided(text(), font(), width)};
    auto starts = broken(text(), font(), width);
    starts.push_back(static_cast<int>(text().size()));
    std::vector<QString> result;
    for (std::size_t line = 0; line + 1 < starts.size(); ++line) {
        if (limit > 0 && static_cast<int>(line) == limit - 1) {
            result.push_back(elided(text().mid(starts[line]), font(), width));
            break;
        }
        result.push_back(text().mid(starts[line], starts[line + 1] - starts[line]));
    }
    return result;
}

bool ParagraphLabel::isElided() const
{
    return limit > 0 && linesAt(contentsRect().width()) > limit;
}

QSize ParagraphLabel::sizeHint() const
{
    const QMargins margins = contentsMargins();
    return {textWidth() + margins.left() + margins.right(),
            lineHeight() + margins.top() + margins.bottom()};
}

QSize ParagraphLabel::minimumSizeHint() const
{
    return {0, sizeHint().height()};
}

int ParagraphLabel::heightForWidth(int width) const
{
    const QMargins margins = contentsMargins();
    // Layouts ask about their own width, even if the label may not become as wide.
    const int inside = std::min(width, maximumWidth()) - margins.left() - margins.right();
    const int all = linesAt(inside);
    return (limit > 0 ? std::min(all, limit) : all) * lineHeight() + margins.top()
           + margins.bottom();
}

bool ParagraphLabel::event(QEvent* event)
{
    if (event->type() == QEvent::FontChange)
        knownTextWidth.reset();
    const bool isHandled = QLabel::event(event);
    switch (event->type()) {
    case QEvent::Resize:
    case QEvent::FontChange:
    case QEvent::ContentsRectChange:
        updateToolTip();
        break;
    default:
        break;
    }
    return isHandled;
}

void ParagraphLabel::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    const QRect area = contentsRect();
    const auto shown = lines();
    if (limit == 1) {
        // On the base line of the labels and buttons beside it, which the style draws.
        style()->drawItemText(&painter, area, static_cast<int>(alignment()) | Qt::TextSingleLine,
                              palette(), isEnabled(), shown.front(), foregroundRole());
        return;
    }
    const int height = lineHeight();
    // Centred vertically, like any label.
    double top = area.top() + (area.height() - height * static_cast<int>(shown.size())) / 2.0;
    painter.setPen(palette().color(foregroundRole()));
    for (const QString& line : shown) {
        const double base = top + height / 2.0 + baseLineBelowMiddle(font());
        const double spare = alignment().testFlag(Qt::AlignRight)
                                 ? area.width() - QFontMetricsF(font()).horizontalAdvance(line)
                                 : 0;
        painter.drawText(QPointF(area.left() + spare, std::round(base)), line);
        top += height;
    }
}

int ParagraphLabel::lineHeight() const
{
    if (limit == 1)
        return fontMetrics().height();
    return static_cast<int>(std::ceil(QFontInfo(font()).pixelSize() * kLineHeight));
}

/// The number of lines that the whole text takes.
int ParagraphLabel::linesAt(int width) const
{
    if (limit == 1)
        return textWidth() > width ? 2 : 1;
    return static_cast<int>(broken(text(), font(), width).size());
}

/// Cached, because measuring text is the most expensive operation in a long list, and layouts ask
/// for it repeatedly.
int ParagraphLabel::textWidth() const
{
    if (!knownTextWidth)
        knownTextWidth = widthOf(text(), font());
    return *knownTextWidth;
}

void ParagraphLabel::updateToolTip()
{
    setToolTip(isElided() ? shownInToolTip(text().toStdString()) : QString());
}

} // namespace quillbox
