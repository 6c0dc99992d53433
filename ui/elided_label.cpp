#include "ui/elided_label.h"

#include "ui/display_text.h"

#include <QEvent>
#include <QFontMetrics>
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
    return fontMetrics().horizontalAdvance(text()) > contentsRect().width();
}

QSize ElidedLabel::minimumSizeHint() const
{
    const QMargins margins = contentsMargins();
    const int ellipsis = fontMetrics().horizontalAdvance(QChar(kEllipsis));
    const QSize whole = QLabel::minimumSizeHint();
    return {std::min(whole.width(), ellipsis + margins.left() + margins.right()), whole.height()};
}

bool ElidedLabel::event(QEvent* event)
{
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
    const QString line = fontMetrics().elidedText(text(), Qt::ElideRight, area.width());
    const Qt::Alignment place = QStyle::visualAlignment(layoutDirection(), alignment());
    style()->drawItemText(&painter, area, static_cast<int>(place) | Qt::TextSingleLine, palette(),
                          isEnabled(), line, foregroundRole());
}

} // namespace quillbox
