#include "ui/dot_label.h"

#include <QFontInfo>
#include <QPainter>
#include <cmath>

namespace quillbox {

namespace {

/// The diameter, relative to the font size.
constexpr double kDiameter = 0.8;

} // namespace

DotLabel::DotLabel(QWidget* parent) : QLabel(QStringLiteral("●"), parent)
{
    setTextFormat(Qt::PlainText);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Preferred);
}

QSize DotLabel::sizeHint() const
{
    const int diameter = static_cast<int>(std::round(QFontInfo(font()).pixelSize() * kDiameter));
    return {diameter, diameter};
}

void DotLabel::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(palette().color(foregroundRole()));
    const double radius = sizeHint().width() / 2.0;
    painter.drawEllipse(QPointF(radius, height() / 2.0), radius, radius);
}

} // namespace quillbox
