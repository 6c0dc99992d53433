#include "ui/look/focus_ring.h"

#include "ui/look/brand.h"

#include <QApplication>
#include <QLineEdit>
#include <QPainter>

namespace quillbox {

namespace {

constexpr int kThickness = 2;
constexpr int kRadius = 8;

bool isRinged(const QWidget& control)
{
    return qobject_cast<const QLineEdit*>(&control) != nullptr
           || control.window()->testAttribute(Qt::WA_KeyboardFocusChange);
}

} // namespace

FocusRing::FocusRing(QWidget& ringWindow) : QFocusFrame(&ringWindow), window(ringWindow)
{
    hide();
    connect(qApp, &QApplication::focusChanged, this,
            [this](QWidget* /*old*/, QWidget* now) { follow(now); });
}

void FocusRing::follow(QWidget* focused)
{
    const bool isOurs = focused != nullptr && focused->window() == &window;
    setWidget(isOurs && isRinged(*focused) ? focused : nullptr);
}

void FocusRing::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(Brand::blue, kThickness));
    const qreal half = kThickness / 2.0;
    painter.drawRoundedRect(QRectF(rect()).adjusted(half, half, -half, -half), kRadius, kRadius);
}

} // namespace quillbox
