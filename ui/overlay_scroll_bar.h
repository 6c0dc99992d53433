#pragma once

#include <QScrollBar>
#include <QVariantAnimation>

namespace quillbox {

/// A vertical scroll bar above the content, painted only when it matters: while the content
/// scrolls, when its extent changes, when the keyboard focus moves, and as long as the pointer is
/// over it. Then it fades out.
class OverlayScrollBar final : public QScrollBar {
public:
    explicit OverlayScrollBar(QWidget* parent = nullptr);

    /// 0 if it is not painted at all, 1 if it is not fading.
    double strength() const;

    /// Runs from the moment when nothing keeps the bar visible, until it has faded out.
    QVariantAnimation& animation() { return fading; }

private:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void sliderChange(SliderChange change) override;

    void reveal();

    QVariantAnimation fading;
};

} // namespace quillbox
