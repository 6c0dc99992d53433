#pragma once

#include <QMargins>
#include <QScrollArea>
#include <functional>
#include <optional>
#include <vector>

class QVBoxLayout;

namespace quillbox {

/// The content of the window, top to bottom, in the middle of its width.
///
/// The height of the window is given, and the title bar takes a part of it, so there may be less
/// room than the content needs. Then distances in the content give way evenly, and where that is
/// not enough, it scrolls: with an overlay scroll bar, and with edges that fade out where the
/// content goes on. A part of the content may be unfolded; what is above it does not move when
/// that happens, only the distances below the fold give way for it.
class ContentArea final : public QScrollArea {
public:
    /// What a distance gives way to.
    enum class GivesWay {
        ToTitleBar, ///< to the title bar only, because it is above the part that unfolds
        ToFold,     ///< to the unfolded part only
        ToBoth,
        InsideFold, ///< like ToFold, and it exists only while that part is unfolded
    };

    /// A distance that may become smaller; it occurs `count` times.
    struct Gap {
        int usual = 0;
        int count = 1;
        GivesWay givesWay = GivesWay::ToTitleBar;
        std::function<void(int)> set;
    };

    explicit ContentArea(QWidget* parent = nullptr);

    /// The layout of the content.
    QVBoxLayout& column() { return *layout; }

    void addGap(Gap gap);

    /// The part that can be unfolded.
    void setFold(QWidget& part) { fold = &part; }

    /// By how much the window is higher than with the part folded.
    void setUnfoldedHeight(int height) { unfoldedHeight = height; }

    /// While the height of the window is changing, the height that it will have: the content then
    /// has its final distances, and the scroll bar, which would only flash, is hidden.
    void setFinalHeight(std::optional<int> height);

private:
    class FadingEdge;

    /// How much of their usual sizes distances have, in per cent.
    struct Shares {
        int titleBar = 100; ///< of the distances that give way to the title bar
        int fold = 100;     ///< of the distances that give way to the unfolded part
    };

    bool eventFilter(QObject* watched, QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;

    void fit();
    Shares fittingShares(int room) const;
    void activateLayouts();
    static int sizeOf(const Gap& gap, const Shares& at);
    int heightOfGaps(const Shares& at, bool isUnfolded) const;
    void setGaps(const Shares& at);
    void updateEdges();

    QVBoxLayout* layout = nullptr; ///< owned by the content widget
    QWidget* fold = nullptr;       ///< owned by the content widget; null if there is none
    FadingEdge* topEdge = nullptr; ///< owned by the viewport, like the next
    FadingEdge* bottomEdge = nullptr;
    std::vector<Gap> gaps;
    Shares shares; ///< the current ones
    int unfoldedHeight = 0;
    std::optional<int> finalHeight;
};

} // namespace quillbox
