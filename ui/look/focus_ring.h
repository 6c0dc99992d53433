#pragma once

#include <QFocusFrame>

namespace quillbox {

/// Shows the keyboard focus: a ring around the focused control of a window. A control other than a
/// field has none after a mouse click.
class FocusRing final : public QFocusFrame {
public:
    /// Owned by the window.
    explicit FocusRing(QWidget& ringWindow);

private:
    void paintEvent(QPaintEvent* event) override;
    void follow(QWidget* focused);

    QWidget& window;
};

} // namespace quillbox
