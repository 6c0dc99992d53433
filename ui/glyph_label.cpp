#include "ui/glyph_label.h"

#include "ui/text_style.h"

#include <QEvent>
#include <QFontMetricsF>
#include <QPainter>
#include <cmath>

namespace quillbox {

GlyphLabel::GlyphLabel(const QString& glyph, QWidget* parent) : QLabel(glyph, parent)
{
    setTextFormat(Qt::PlainText);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Preferred);
}

QSize GlyphLabel::sizeHint() const
{
    // Cached, because layouts ask repeatedly, and measuring text is the most expensive part.
    if (!knownSize.isValid()) {
        const double height = QFontMetricsF(font()).tightBoundingRect(text()).height();
        knownSize = {widthOf(text(), font()), static_cast<int>(std::ceil(height))};
    }
    return knownSize;
}

void GlyphLabel::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange)
        knownSize = {};
    QLabel::changeEvent(event);
}

void GlyphLabel::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    const QRectF glyph = QFontMetricsF(font()).tightBoundingRect(text());
    painter.setPen(palette().color(foregroundRole()));
    painter.drawText(QPointF(0, height() / 2.0 - glyph.center().y()), text());
}

} // namespace quillbox
