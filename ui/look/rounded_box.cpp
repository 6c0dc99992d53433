#include "ui/look/rounded_box.h"

#include <QPainter>

namespace quillbox {

RoundedBox::RoundedBox(Look boxLook, QWidget* parent) : QWidget(parent), look(boxLook) {}

void RoundedBox::paint(QPainter& painter, const QRect& area, const Look& look)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(look.fill);
    painter.setPen(QPen(look.border, 1));
    // The pen is centred on the path: half a pixel inwards, it fills the outermost pixels.
    const qreal half = 0.5;
    painter.drawRoundedRect(QRectF(area).adjusted(half, half, -half, -half), look.radius - half,
                            look.radius - half);
    painter.restore();
}

void RoundedBox::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    paint(painter, rect(), look);
}

} // namespace quillbox
