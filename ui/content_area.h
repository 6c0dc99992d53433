#pragma once

#include <QMargins>
#include <QScrollArea>

class QVBoxLayout;

namespace quillbox {

/// The content of the window, top to bottom. If the window is too small for it, the right and
/// bottom insets shrink first; then it scrolls, so that everything can be reached at any height.
class ContentArea final : public QScrollArea {
public:
    explicit ContentArea(QMargins contentInsets, QWidget* parent = nullptr);

    ContentArea(const ContentArea&) = delete;
    ContentArea& operator=(const ContentArea&) = delete;
    ~ContentArea() override = default;

    /// The layout of the content.
    QVBoxLayout& column() { return *layout; }

    /// Hides the scroll bar while the height is changing, when it would only flash.
    void setSettling(bool isSettling);

    /// The height of the content without its bottom inset.
    int neededHeight() const;

private:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void fit();

    const QMargins insets;
    QVBoxLayout* layout = nullptr; ///< owned by the content widget
};

} // namespace quillbox
