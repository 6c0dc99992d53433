#pragma once

#include <QFocusFrame>

namespace quillbox {

/// Shows where the keyboard acts: a ring around the control of a window that has the focus. After a
/// click it is left out, unless the control is a field.
class FocusRing final : public QFocusFrame {
public:
    /// Belongs to the window.
    explicit FocusRing(QWidget& ringWindow);

    FocusRing(const FocusRing&) = delete;
    FocusRing& operator=(const FocusRing&) = delete;
    ~FocusRing() override = default;

private:
    void paintEvent(QPaintEvent* event) override;
    void follow(QWidget* focused);

    QWidget& window;
};

} // namespace quillbox
