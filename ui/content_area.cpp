#include "ui/content_area.h"

#include "ui/overlay_scroll_bar.h"

#include <QEvent>
#include <QLinearGradient>
#include <QPainter>
#include <QResizeEvent>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

namespace quillbox {

namespace {

/// The smallest shares of distances, in per cent. Below the second, a form looks crammed, and
/// scrolling is better.
constexpr int kSmallestShareForTitleBar = 25;
constexpr int kSmallestShareForFold = 40;

constexpr int kEdgeHeight = 28;

int heightOf(const QLayout& layout)
{
    return layout.hasHeightForWidth() ? layout.totalHeightForWidth(layout.minimumSize().width())
                                      : layout.totalSizeHint().height();
}

/// The greatest share at which something fits; 100 if it fits at none.
template <typename Fits> int greatestShare(int smallest, const Fits& fits)
{
    for (int share = 100; share >= smallest; --share) {
        if (fits(share))
            return share;
    }
    return 100;
}

} // namespace

/// The last pixels before an edge of the area, where the content fades into the background.
class ContentArea::FadingEdge final : public QWidget {
public:
    FadingEdge(Qt::Edge fadingEdge, QWidget* parent) : QWidget(parent), edge(fadingEdge)
    {
        setAttribute(Qt::WA_TransparentForMouseEvents);
        hide();
    }

    void place(const QSize& room)
    {
        const int top = edge == Qt::TopEdge ? 0 : room.height() - kEdgeHeight;
        setGeometry(0, top, room.width(), kEdgeHeight);
    }

private:
    void paintEvent(QPaintEvent* /*event*/) override
    {
        const QColor opaque = palette().color(QPalette::Window);
        QColor clear = opaque;
        clear.setAlpha(0);
        QLinearGradient gradient(0, 0, 0, height());
        gradient.setColorAt(edge == Qt::TopEdge ? 0 : 1, opaque);
        gradient.setColorAt(edge == Qt::TopEdge ? 1 : 0, clear);
        QPainter(this).fillRect(rect(), gradient);
    }

    const Qt::Edge edge;
};

ContentArea::ContentArea(QWidget* parent) : QScrollArea(parent)
{
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBar(new OverlayScrollBar);
    // The area itself takes no focus; it scrolls to the child that gets it.
    setFocusPolicy(Qt::NoFocus);
    auto* content = new QWidget;
    layout = new QVBoxLayout(content);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSizeConstraint(QLayout::SetNoConstraint);
    setWidget(content);
    topEdge = new FadingEdge(Qt::TopEdge, viewport());
    bottomEdge = new FadingEdge(Qt::BottomEdge, viewport());
}

void ContentArea::addGap(Gap gap)
{
    gap.set(gap.usual);
    gaps.push_back(std::move(gap));
}

void ContentArea::setFinalHeight(std::optional<int> height)
{
    finalHeight = height;
    setVerticalScrollBarPolicy(height ? Qt::ScrollBarAlwaysOff : Qt::ScrollBarAsNeeded);
    fit();
}

bool ContentArea::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::LayoutRequest)
        fit();
    return QScrollArea::eventFilter(watched, event);
}

void ContentArea::resizeEvent(QResizeEvent* event)
{
    QScrollArea::resizeEvent(event);
    fit();
}

void ContentArea::scrollContentsBy(int dx, int dy)
{
    QScrollArea::scrollContentsBy(dx, dy);
    updateEdges();
}

void ContentArea::fit()
{
    const QSize room(viewport()->width(), finalHeight.value_or(viewport()->height()));
    const QMargins before = layout->contentsMargins();
    const int width = layout->minimumSize().width() - before.left() - before.right();
    const int beside = std::max(room.width() - width, 0) / 2;
    layout->setContentsMargins(beside, before.top(), beside, before.bottom());
    activateLayouts();
    setGaps(fittingShares(room.height()));
    activateLayouts();
    widget()->resize(std::max(room.width(), width), std::max(room.height(), heightOf(*layout)));
    updateEdges();
}

ContentArea::Shares ContentArea::fittingShares(int room) const
{
    const bool isUnfolded = fold && !fold->isHidden();
    const int fixed = heightOf(*layout) - heightOfGaps(shares, isUnfolded);
    const int inFold = isUnfolded ? heightOf(*fold->layout()) : 0;
    const int gapsInFold = heightOfGaps(shares, isUnfolded) - heightOfGaps(shares, false);
    const int fixedFolded = fixed - (inFold - gapsInFold);
    Shares fitting;
    fitting.titleBar = greatestShare(kSmallestShareForTitleBar, [&](int share) {
        return fixedFolded + heightOfGaps({.titleBar = share}, false) <= room - unfoldedHeight;
    });
    fitting.fold = greatestShare(kSmallestShareForFold, [&](int share) {
        return fixed + heightOfGaps({.titleBar = fitting.titleBar, .fold = share}, isUnfolded)
               <= room;
    });
    return fitting;
}

/// Makes the layouts aware of changed distances now, from the inside out, so that they can be
/// measured.
void ContentArea::activateLayouts()
{
    for (QWidget* part = fold; part && part != widget(); part = part->parentWidget())
        part->layout()->activate();
    layout->activate();
}

int ContentArea::sizeOf(const Gap& gap, const Shares& at)
{
    const bool givesWayToTitleBar =
        gap.givesWay == GivesWay::ToTitleBar || gap.givesWay == GivesWay::ToBoth;
    const int share = (givesWayToTitleBar ? at.titleBar : 100)
                      * (gap.givesWay == GivesWay::ToTitleBar ? 100 : at.fold);
    return (gap.usual * share + 5000) / 10000;
}

int ContentArea::heightOfGaps(const Shares& at, bool isUnfolded) const
{
    int height = 0;
    for (const Gap& gap : gaps) {
        if (isUnfolded || gap.givesWay != GivesWay::InsideFold)
            height += gap.count * sizeOf(gap, at);
    }
    return height;
}

void ContentArea::setGaps(const Shares& at)
{
    for (const Gap& gap : gaps) {
        // Setting it to the same size would lay out everything again.
        if (sizeOf(gap, at) != sizeOf(gap, shares))
            gap.set(sizeOf(gap, at));
    }
    shares = at;
}

void ContentArea::updateEdges()
{
    const int above = -widget()->y();
    const int below = widget()->height() - viewport()->height() - above;
    for (const auto& [edge, hidden] : {std::pair(topEdge, above), std::pair(bottomEdge, below)}) {
        edge->place(viewport()->size());
        edge->setVisible(hidden > 0 && !finalHeight);
    }
}

} // namespace quillbox
