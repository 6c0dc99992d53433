#pragma once

#include <QObject>
#include <QSize>
#include <QVariantAnimation>
#include <optional>

class QWidget;

namespace quillbox {

/// Keeps the frame of a window, including the title bar and the borders that are added to it, at a
/// given size, and its top left corner in place. The size of the decoration is known only after
/// the window has been shown, and may change.
///
/// A change of the height is animated if the window is visible and the style has animations.
class FrameSizer final : public QObject {
public:
    /// What a toolkit that reports no decoration means by it.
    enum class Unreported {
        none,     ///< there is none
        titleBar, ///< there may be one, of a size that the toolkit does not know
    };

    /// The height of a decoration whose size is unknown. A Wayland compositor that decorates
    /// windows itself does not tell them how high its title bar is. KWin with Breeze adds 29 pixels
    /// and sway 27, with their default fonts. Elsewhere the frame may be a few pixels off, but not
    /// more: a title bar is a line of text with margins.
    static constexpr int kUsualTitleBar = 28;

    /// Owned by the window.
    FrameSizer(QWidget& sizedWindow, Unreported unreportedMeans);

    FrameSizer(const FrameSizer&) = delete;
    FrameSizer& operator=(const FrameSizer&) = delete;
    ~FrameSizer() override = default;

    /// Sets the size of the frame. Before the first call the window is left alone.
    void setFrameSize(const QSize& size);

    /// The height of the window without its decoration when the animation is over. Only after
    /// setFrameSize().
    int finalContentHeight() const;

    QVariantAnimation& animation() { return height; }

private:
    bool eventFilter(QObject* watched, QEvent* event) override;
    bool isAnimated() const;
    QSize decoration() const;
    void apply();

    QWidget& window;
    const Unreported unreported;
    QVariantAnimation height;
    std::optional<QSize> frameSize; ///< the current size, also in the middle of an animation
    int corrections = 0;            ///< how often another size was refused, since this one was set
};

} // namespace quillbox
