#include "ui/content_area.h"

#include <QEvent>
#include <QResizeEvent>
#include <QVBoxLayout>
#include <algorithm>

namespace quillbox {

ContentArea::ContentArea(QMargins contentInsets, QWidget* parent)
    : QScrollArea(parent), insets(contentInsets)
{
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // The area itself takes no focus; it scrolls to the child that gets it.
    setFocusPolicy(Qt::NoFocus);
    auto* content = new QWidget;
    layout = new QVBoxLayout(content);
    layout->setContentsMargins(insets);
    layout->setSizeConstraint(QLayout::SetNoConstraint);
    setWidget(content);
    // Transparent: the background of the window shows.
    viewport()->setAutoFillBackground(false);
    content->setAutoFillBackground(false);
}

void ContentArea::setSettling(bool isSettling)
{
    setVerticalScrollBarPolicy(isSettling ? Qt::ScrollBarAlwaysOff : Qt::ScrollBarAsNeeded);
}

int ContentArea::neededHeight() const
{
    const int width = layout->minimumSize().width();
    const int bottom = layout->contentsMargins().bottom();
    const int whole = layout->hasHeightForWidth() ? layout->totalHeightForWidth(width)
                                                  : layout->totalSizeHint().height();
    return whole - bottom;
}

bool ContentArea::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == widget() && event->type() == QEvent::LayoutRequest)
        fit();
    return QScrollArea::eventFilter(watched, event);
}

void ContentArea::resizeEvent(QResizeEvent* event)
{
    QScrollArea::resizeEvent(event);
    fit();
}

void ContentArea::fit()
{
    const QSize room = viewport()->size();
    const int needed = neededHeight();
    const int minimumWidth = layout->minimumSize().width() - layout->contentsMargins().right();
    layout->setContentsMargins(insets.left(), insets.top(),
                               std::clamp(room.width() - minimumWidth, 0, insets.right()),
                               std::clamp(room.height() - needed, 0, insets.bottom()));
    widget()->resize(std::max(room.width(), minimumWidth), std::max(room.height(), needed));
}

} // namespace quillbox
