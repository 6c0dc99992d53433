#pragma once

#include <QObject>
#include <QSize>
#include <QVariantAnimation>
#include <optional>

class QWidget;

namespace quillbox {

/// Keeps the frame of a window, including the title bar and the borders that the window manager
/// adds, at a given size, and its top left corner in place. The size of the decoration is known
/// only after the window has been shown, and may change.
///
/// A change of the height is animated if the window is visible and the style has animations.
class FrameSizer final : public QObject {
public:
    /// Owned by the window.
    explicit FrameSizer(QWidget& sizedWindow);

    FrameSizer(const FrameSizer&) = delete;
    FrameSizer& operator=(const FrameSizer&) = delete;
    ~FrameSizer() override = default;

    /// Sets the size of the frame. Before the first call the window is left alone.
    void setFrameSize(const QSize& size);

    QVariantAnimation& animation() { return height; }

private:
    bool eventFilter(QObject* watched, QEvent* event) override;
    bool isAnimated() const;
    void apply();

    QWidget& window;
    QVariantAnimation height;
    std::optional<QSize> frameSize; ///< the current size, also in the middle of an animation
};

} // namespace quillbox
