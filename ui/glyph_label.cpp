#include "ui/glyph_label.h"

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
    const QFontMetricsF metrics(font());
    return {static_cast<int>(std::ceil(metrics.horizontalAdvance(text()))),
            static_cast<int>(std::ceil(metrics.tightBoundingRect(text()).height()))};
}

void GlyphLabel::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    const QRectF glyph = QFontMetricsF(font()).tightBoundingRect(text());
    painter.setPen(palette().color(foregroundRole()));
    painter.drawText(QPointF(0, height() / 2.0 - glyph.center().y()), text());
}

} // namespace quillbox
