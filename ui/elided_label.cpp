#include "ui/elided_label.h"

#include "ui/display_text.h"
#include "ui/text_style.h"

#include <QEvent>
#include <QPainter>
#include <QStyle>
#include <algorithm>

namespace quillbox {

namespace {

constexpr char16_t kEllipsis = 0x2026;

} // namespace

ElidedLabel::ElidedLabel(std::string_view name, QWidget* parent)
    : QLabel(parent), toolTipWhenElided(DisplayText::forToolTip(name))
{
    setTextFormat(Qt::PlainText);
    setText(DisplayText::forLabel(name));
}

bool ElidedLabel::isElided() const
{
    return textWidth() > contentsRect().width();
}

QSize ElidedLabel::sizeHint() const
{
    return sizeFor(textWidth());
}

QSize ElidedLabel::minimumSizeHint() const
{
    return sizeFor(std::min(textWidth(), widthOf(QChar(kEllipsis), font())));
}

QSize ElidedLabel::sizeFor(int width) const
{
    return QSize(width, fontMetrics().height()).grownBy(contentsMargins());
}

/// Cached, because measuring text is the most expensive operation in a long list, and layouts ask
/// for it repeatedly.
int ElidedLabel::textWidth() const
{
    if (!knownTextWidth)
        knownTextWidth = widthOf(text(), font());
    return *knownTextWidth;
}

bool ElidedLabel::event(QEvent* event)
{
    if (event->type() == QEvent::FontChange)
        knownTextWidth.reset();
    const bool isHandled = QLabel::event(event);
    switch (event->type()) {
    case QEvent::Resize:
    case QEvent::FontChange:
    case QEvent::ContentsRectChange:
        setToolTip(isElided() ? toolTipWhenElided : QString());
        break;
    default:
        break;
    }
    return isHandled;
}

void ElidedLabel::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    const QRect area = contentsRect();
    const QString line = isElided() ? elided(text(), font(), area.width()) : text();
    const Qt::Alignment place = QStyle::visualAlignment(layoutDirection(), alignment());
    style()->drawItemText(&painter, area, static_cast<int>(place) | Qt::TextSingleLine, palette(),
                          isEnabled(), line, foregroundRole());
}

} // namespace quillbox
