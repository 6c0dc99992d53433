#pragma once

#include <QMargins>
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
    /// How the toolkit reports the size of a decoration.
    enum class Reported {
        Exactly,
        AsOnWayland, ///< not at all if the compositor draws it; with its shadow if the toolkit does
    };

    /// The height of a decoration whose size is unknown. A Wayland compositor that decorates
    /// windows itself does not tell them how high its title bar is. KWin with Breeze adds 29 pixels
    /// and sway 27, with their default fonts. Elsewhere the frame may be a few pixels off, but not
    /// more: a title bar is a line of text with margins.
    static constexpr int kUsualTitleBar = 28;

    /// The width of the shadow around Qt's Adwaita decoration, which Qt 6.8 and later draw on
    /// GNOME. It counts as a part of the decoration there, but is outside of the frame that one
    /// sees.
    static constexpr int kShadow = 10;

    /// Owned by the window.
    FrameSizer(QWidget& sizedWindow, Reported waySizesAreReported);

    /// Sets the size of the frame. Before the first call the window is left alone.
    void setFrameSize(const QSize& size);

    /// The height of the window without its decoration when the animation is over. Only after
    /// setFrameSize().
    int finalContentHeight() const;

    QVariantAnimation& animation() { return height; }

    /// What a decoration adds to the width and height of a window, if it is reported as this.
    static QSize visibleSize(const QMargins& decoration, Reported reported);

private:
    bool eventFilter(QObject* watched, QEvent* event) override;
    QSize decoration() const;
    void apply();

    QWidget& window;
    const Reported reported;
    QVariantAnimation height;
    std::optional<QSize> frameSize; ///< the current size, also in the middle of an animation
    int corrections = 0;            ///< how often another size was refused, since this one was set
};

} // namespace quillbox
