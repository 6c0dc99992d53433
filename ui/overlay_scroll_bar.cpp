#include "ui/overlay_scroll_bar.h"

#include <QApplication>
#include <QEvent>
#include <QPainter>
#include <QStyleOptionSlider>

namespace quillbox {

namespace {

/// In milliseconds.
constexpr int kStay = 900;
constexpr int kFade = 250;

} // namespace

OverlayScrollBar::OverlayScrollBar(QWidget* parent) : QScrollBar(Qt::Vertical, parent)
{
    // The content shows through.
    setAttribute(Qt::WA_OpaquePaintEvent, false);
    fading.setDuration(kStay + kFade);
    fading.setStartValue(1.0);
    fading.setKeyValueAt(static_cast<double>(kStay) / (kStay + kFade), 1.0);
    fading.setEndValue(0.0);
    connect(&fading, &QVariantAnimation::valueChanged, this, qOverload<>(&QWidget::update));
    connect(qApp, &QApplication::focusChanged, this, [this](QWidget* /*old*/, QWidget* now) {
        if (now && now->window() == window())
            reveal();
    });
}

double OverlayScrollBar::strength() const
{
    if (isSliderDown() || underMouse())
        return 1;
    return fading.state() == QAbstractAnimation::Running ? fading.currentValue().toDouble() : 0;
}

bool OverlayScrollBar::event(QEvent* event)
{
    switch (event->type()) {
    case QEvent::Enter:
    case QEvent::Leave:
    case QEvent::MouseButtonRelease:
    case QEvent::Show:
        reveal();
        break;
    default:
        break;
    }
    return QScrollBar::event(event);
}

void OverlayScrollBar::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    painter.setOpacity(strength());
    QStyleOptionSlider option;
    initStyleOption(&option);
    style()->drawComplexControl(QStyle::CC_ScrollBar, &option, &painter, this);
}

void OverlayScrollBar::sliderChange(SliderChange change)
{
    QScrollBar::sliderChange(change);
    reveal();
}

void OverlayScrollBar::reveal()
{
    if (!isVisible())
        return;
    fading.stop();
    fading.start();
}

} // namespace quillbox
