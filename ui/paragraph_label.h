#pragma once

#include <QLabel>
#include <QString>
#include <vector>

namespace quillbox {

/// A label that wraps plain text: at word boundaries, and inside a word only where one is longer
/// than a line. What exceeds a limit of lines is left out behind an ellipsis, and the tool tip then
/// has the whole text. `text()`, and what assistive programs read, is always whole.
///
/// It has no width of its own: left alone it is one long line. Its lines have the same distance in
/// every family, so that a text is as high on one desktop as on another.
class ParagraphLabel final : public QLabel {
public:
    explicit ParagraphLabel(const QString& text = {}, QWidget* parent = nullptr);

    ParagraphLabel(const ParagraphLabel&) = delete;
    ParagraphLabel& operator=(const ParagraphLabel&) = delete;
    ~ParagraphLabel() override = default;

    /// Instead of QLabel's, which does not know of the tool tip.
    void setText(const QString& text);

    /// 0, which it starts with, is no limit.
    void setMaximumLines(int count);
    int maximumLines() const { return limit; }

    /// The lines as they are painted at the present width.
    std::vector<QString> lines() const;

    bool isElided() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    int heightForWidth(int width) const override;

private:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

    int lineHeight() const;
    int visibleLines(int all) const;
    void updateToolTip();

    int limit = 0;
};

} // namespace quillbox
