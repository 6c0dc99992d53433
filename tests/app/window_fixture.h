#pragma once

#include "tests/app/app_fixture.h"
#include "ui/device_row.h"

#include <QColor>
#include <QImage>
#include <QLabel>
#include <QPushButton>
#include <QRect>
#include <QScrollArea>
#include <QString>
#include <QWidget>
#include <iosfwd>
#include <string>
#include <vector>

namespace quillbox {

inline constexpr const char* kNavy = "#0f172a";
inline constexpr const char* kSlate = "#475569";

/// A controller with a fake environment and its window, of which tests check what a user sees.
class WindowFixture : public AppFixture {
protected:
    /// The offscreen platform adds a border of this width around windows.
    static constexpr int kBorder = 2;

    /// Launches, fits the height to the content, activates the window and lays it out.
    void open();

    /// Makes the window active, so that it has the keyboard focus.
    void activate();

    /// Makes another window active, which takes the keyboard focus away.
    void activateAnother();

    /// Runs pending layouts, and finishes an animation of the height.
    void settle();

    /// Gives the content that size, as if the frame and its decoration were different.
    void setContentSize(const QSize& size);

    /// Runs pending layouts, but does not advance an animation of the height.
    static void layOut();

    QWidget& window() const { return *delegate->window; }

    /// The geometry of a widget relative to the content's top left corner, even if it is scrolled.
    QRect place(const QWidget& widget) const;

    /// The visible label or button with that text; null if there is none.
    QLabel* label(const QString& text) const;
    QPushButton* button(const QString& text) const;

    QScrollArea& area() const;

    /// Whether the content is too high for the window.
    bool isScrolling() const;

    std::vector<DeviceRow*> rows() const;

    /// A picture of a widget; `scale` is the device pixel ratio.
    static QImage pictureOf(QWidget& widget, double scale = 1);

    static void press(QWidget& widget, int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier);

    /// The key is held down: presses it, and repeats that.
    static void hold(QWidget& widget, int key);
    static void release(QWidget& widget, int key);
    static void pressTab(QWidget& window, bool backwards = false);

    /// Presses or releases the first pointer button in the middle of a widget.
    static void pressPointer(QWidget& widget);
    static void releasePointer(QWidget& widget);

private:
    QWidget otherWindow;
};

/// Font size, font weight and colour of a text.
struct Writing {
    int size = 0;
    int weight = 0;
    std::string colour;

    bool operator==(const Writing&) const = default;
};

Writing writingOf(const QWidget& widget);
std::ostream& operator<<(std::ostream& stream, const Writing& writing);

} // namespace quillbox
