#include "tests/app/window_fixture.h"

#include "ui/frame_sizer.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QVBoxLayout>
#include <ostream>

namespace quillbox {

void WindowFixture::open()
{
    launch();
    delegate->updateWindowHeight();
    activate();
    settle();
}

void WindowFixture::activate()
{
    window().activateWindow();
    QCoreApplication::processEvents();
    ASSERT_TRUE(window().isActiveWindow());
}

void WindowFixture::activateAnother()
{
    otherWindow.show();
    otherWindow.activateWindow();
    QCoreApplication::processEvents();
    ASSERT_FALSE(window().isActiveWindow());
}

void WindowFixture::settle()
{
    QVariantAnimation& animation = delegate->frameSizer->animation();
    layOut();
    if (animation.state() == QAbstractAnimation::Running)
        animation.setCurrentTime(animation.totalDuration());
    layOut();
}

void WindowFixture::setContentSize(const QSize& size)
{
    delegate->frameSizer->setFrameSize(size + QSize(2 * kBorder, 2 * kBorder));
    settle();
}

void WindowFixture::layOut()
{
    // A layout event may post events to nested layouts.
    for (int depth = 0; depth < 8; ++depth)
        QCoreApplication::sendPostedEvents();
}

QRect WindowFixture::place(const QWidget& widget) const
{
    return {widget.mapTo(area().widget(), QPoint()), widget.size()};
}

QLabel* WindowFixture::label(const QString& text) const
{
    QLabel* found = nullptr;
    for (auto* candidate : window().findChildren<QLabel*>()) {
        if (candidate->text() == text && candidate->isVisible()) {
            EXPECT_FALSE(found) << "twice: " << text.toStdString();
            found = candidate;
        }
    }
    return found;
}

QPushButton* WindowFixture::button(const QString& text) const
{
    for (auto* candidate : window().findChildren<QPushButton*>()) {
        if (candidate->text() == text && candidate->isVisible())
            return candidate;
    }
    return nullptr;
}

QScrollArea& WindowFixture::area() const
{
    return *window().findChild<QScrollArea*>();
}

bool WindowFixture::isScrolling() const
{
    return area().verticalScrollBar()->maximum() > 0;
}

std::vector<DeviceRow*> WindowFixture::rows() const
{
    std::vector<DeviceRow*> found;
    const QLayout& list = *delegate->deviceListStack.layout();
    for (int index = 0; index < list.count(); ++index) {
        if (auto* row = dynamic_cast<DeviceRow*>(list.itemAt(index)->widget()))
            found.push_back(row);
    }
    return found;
}

QImage WindowFixture::pictureOf(QWidget& widget, double scale)
{
    QImage picture((QSizeF(widget.size()) * scale).toSize(), QImage::Format_RGB32);
    picture.setDevicePixelRatio(scale);
    picture.fill(Qt::magenta);
    widget.render(&picture);
    picture.setDevicePixelRatio(1);
    return picture;
}

void WindowFixture::press(QWidget& widget, int key, Qt::KeyboardModifiers modifiers)
{
    QKeyEvent event(QEvent::KeyPress, key, modifiers);
    QApplication::sendEvent(&widget, &event);
}

void WindowFixture::hold(QWidget& widget, int key)
{
    press(widget, key);
    for (int repeat = 0; repeat < 5; ++repeat) {
        QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier, QString(), true);
        QApplication::sendEvent(&widget, &event);
    }
}

void WindowFixture::release(QWidget& widget, int key)
{
    QKeyEvent event(QEvent::KeyRelease, key, Qt::NoModifier);
    QApplication::sendEvent(&widget, &event);
}

void WindowFixture::pressTab(QWidget& window, bool backwards)
{
    QWidget* focused = window.focusWidget() ? window.focusWidget() : &window;
    press(*focused, backwards ? Qt::Key_Backtab : Qt::Key_Tab,
          backwards ? Qt::ShiftModifier : Qt::NoModifier);
}

void WindowFixture::pressPointer(QWidget& widget)
{
    const QPointF middle = widget.rect().center();
    QMouseEvent event(QEvent::MouseButtonPress, middle, widget.mapToGlobal(middle), Qt::LeftButton,
                      Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&widget, &event);
}

void WindowFixture::releasePointer(QWidget& widget)
{
    const QPointF middle = widget.rect().center();
    QMouseEvent event(QEvent::MouseButtonRelease, middle, widget.mapToGlobal(middle),
                      Qt::LeftButton, Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(&widget, &event);
}

Writing writingOf(const QWidget& widget)
{
    return {.size = widget.font().pixelSize(),
            .weight = widget.font().weight(),
            .colour = widget.palette().color(widget.foregroundRole()).name().toStdString()};
}

std::ostream& operator<<(std::ostream& stream, const Writing& writing)
{
    return stream << writing.size << " px, " << writing.weight << ", " << writing.colour;
}

} // namespace quillbox
