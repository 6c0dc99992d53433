#pragma once

#include "tests/app/app_fixture.h"
#include "ui/device_row.h"
#include "ui/manage_button.h"

#include <QColor>
#include <QImage>
#include <QLabel>
#include <QPushButton>
#include <QRect>
#include <QScrollArea>
#include <QString>
#include <iosfwd>
#include <string>
#include <vector>

namespace quillbox {

inline constexpr const char* kNavy = "#0f172a";
inline constexpr const char* kSlate = "#475569";

/// A controller in a world of fakes, and its window, read the way it is seen.
class WindowFixture : public AppFixture {
protected:
    /// The offscreen platform puts a border of this width around windows.
    static constexpr int kBorder = 2;

    /// Launches, has the height follow the content, lays everything out and gives it the keyboard.
    void open();

    /// Gives the window the keyboard, as a desktop does.
    void activate();

    /// Has the layouts do what they were asked to do, and a change of the height be over.
    void settle();

    /// The same, but leaves a change of the height where it is.
    static void layOut();

    QWidget& window() const { return *delegate->window; }

    /// Where a widget is in the content, from whose top left corner; also when that was scrolled.
    QRect place(const QWidget& widget) const;

    /// The one visible label or button of that text.
    QLabel* label(const QString& text) const;
    QPushButton* button(const QString& text) const;

    QScrollArea& area() const;

    /// What scrolls, if it does.
    bool isScrolling() const;

    std::vector<DeviceRow*> rows() const;

    /// How a widget looks; the scale is pixels for each logical one.
    static QImage pictureOf(QWidget& widget, double scale = 1);

    static void press(QWidget& widget, int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier);
    static void release(QWidget& widget, int key);
    static void pressTab(QWidget& window, bool backwards = false);

    /// Presses and lets go of the first button of the pointer in the middle of a widget.
    static void pressPointer(QWidget& widget);
    static void releasePointer(QWidget& widget);
};

/// The size, weight and colour that a text is written in.
struct Writing {
    int size = 0;
    int weight = 0;
    std::string colour;

    bool operator==(const Writing&) const = default;
};

Writing writingOf(const QWidget& widget);
std::ostream& operator<<(std::ostream& stream, const Writing& writing);

} // namespace quillbox
