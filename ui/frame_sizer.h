#pragma once

#include <QObject>
#include <QSize>
#include <QVariantAnimation>
#include <optional>

class QWidget;

namespace quillbox {

/// Keeps the frame of a window, with the title bar and the borders that the window manager adds, at
/// a size, and its top left corner where it is. How much is added is known only after the window
/// was shown, and may change.
///
/// A change of the height is animated where the window is seen and the style animates.
class FrameSizer final : public QObject {
public:
    /// Belongs to the window.
    explicit FrameSizer(QWidget& sizedWindow);

    FrameSizer(const FrameSizer&) = delete;
    FrameSizer& operator=(const FrameSizer&) = delete;
    ~FrameSizer() override = default;

    /// From now on the frame has this size; before the first call it is left alone.
    void setFrameSize(const QSize& size);

    QVariantAnimation& animation() { return height; }

private:
    bool eventFilter(QObject* watched, QEvent* event) override;
    bool isAnimated() const;
    void apply();

    QWidget& window;
    QVariantAnimation height;
    std::optional<QSize> frameSize; ///< what the frame has now, or gets as soon as it can
};

} // namespace quillbox
