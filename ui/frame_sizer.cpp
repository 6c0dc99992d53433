#include "ui/frame_sizer.h"

#include <QEasingCurve>
#include <QEvent>
#include <QStyle>
#include <QWidget>
#include <algorithm>

namespace quillbox {

namespace {

constexpr int kMaximumCorrections = 3;

} // namespace

FrameSizer::FrameSizer(QWidget& sizedWindow, Reported waySizesAreReported)
    : QObject(&sizedWindow), window(sizedWindow), reported(waySizesAreReported)
{
    window.installEventFilter(this);
    height.setEasingCurve(QEasingCurve::OutCubic);
    connect(&height, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        frameSize->setHeight(value.toInt());
        apply();
    });
}

void FrameSizer::setFrameSize(const QSize& size)
{
    if (height.state() == QAbstractAnimation::Running && height.endValue() == size.height())
        return;
    height.stop();
    const QSize before = frameSize.value_or(window.frameGeometry().size());
    frameSize = size;
    const int duration =
        window.style()->styleHint(QStyle::SH_Widget_Animation_Duration, nullptr, &window);
    if (before.height() == size.height() || duration <= 0 || !window.isVisible()
        || window.isMinimized()) {
        apply();
        return;
    }
    frameSize->setHeight(before.height());
    height.setDuration(duration);
    height.setStartValue(before.height());
    height.setEndValue(size.height());
    height.start();
}

int FrameSizer::finalContentHeight() const
{
    const bool isChanging = height.state() == QAbstractAnimation::Running;
    const int frame = isChanging ? height.endValue().toInt() : frameSize->height();
    return frame - decoration().height();
}

bool FrameSizer::eventFilter(QObject* watched, QEvent* event)
{
    switch (event->type()) {
    case QEvent::Show:
    case QEvent::Move:
    case QEvent::Resize:
    case QEvent::WindowStateChange:
    case QEvent::WindowActivate:
        apply();
        break;
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

QSize FrameSizer::visibleSize(const QMargins& decoration, Reported reported)
{
    const QSize size(decoration.left() + decoration.right(),
                     decoration.top() + decoration.bottom());
    if (reported == Reported::Exactly)
        return size;
    if (decoration.isNull())
        return {0, kUsualTitleBar};
    // No decoration of Qt has borders as wide as this, so it is the shadow.
    const int border = std::min({decoration.left(), decoration.right(), decoration.bottom()});
    return border > kShadow ? size - QSize(2 * kShadow, 2 * kShadow) : size;
}

QSize FrameSizer::decoration() const
{
    const QRect outer = window.frameGeometry();
    const QRect inner = window.geometry();
    return visibleSize({inner.left() - outer.left(), inner.top() - outer.top(),
                        outer.right() - inner.right(), outer.bottom() - inner.bottom()},
                       reported);
}

void FrameSizer::apply()
{
    if (!frameSize)
        return;
    // The window manager keeps the top left corner when a window changes its size. The size is
    // fixed, so that nobody else can change it.
    const QSize size = *frameSize - decoration();
    if (window.minimumSize() != size) {
        corrections = 0;
        window.setFixedSize(size);
    } else if (window.size() != size && corrections < kMaximumCorrections) {
        // A Wayland compositor may answer late, with a size in the middle of an animation, and the
        // toolkit takes it whatever the limits are. One that insists on it is obeyed in the end.
        ++corrections;
        window.resize(size);
    }
}

} // namespace quillbox
