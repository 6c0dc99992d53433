#pragma once

#include <QMargins>
#include <QScrollArea>

class QVBoxLayout;

namespace quillbox {

/// What stands in the window, top to bottom. Where there is less room than it needs, its right and
/// bottom insets give way first; then it scrolls, so that everything can be reached at any height.
class ContentArea final : public QScrollArea {
public:
    explicit ContentArea(QMargins contentInsets, QWidget* parent = nullptr);

    ContentArea(const ContentArea&) = delete;
    ContentArea& operator=(const ContentArea&) = delete;
    ~ContentArea() override = default;

    /// Where the content goes.
    QVBoxLayout& column() { return *layout; }

    /// Whether the height is about to change: a scroll bar would only flash up meanwhile.
    void setSettling(bool isSettling);

    /// How high the content is without its bottom inset.
    int neededHeight() const;

private:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void fit();

    const QMargins insets;
    QVBoxLayout* layout = nullptr; ///< the content's
};

} // namespace quillbox
