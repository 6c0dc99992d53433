#pragma once

#include <QLabel>
#include <QString>
#include <optional>
#include <vector>

namespace quillbox {

/// A label that wraps plain text: at word boundaries, and inside a word only if it is longer than a
/// line. Text beyond the maximum number of lines is elided, and the tool tip then shows all of it.
/// `text()`, and what assistive technologies read, is always the whole text.
///
/// Its size hint is that of one long line; the layout decides the width. The line height does not
/// depend on the font family, so that a text has the same height on every desktop. With a maximum
/// of one line, height and base line are those of any label, as there are others beside it.
class ParagraphLabel final : public QLabel {
public:
    explicit ParagraphLabel(const QString& text = {}, QWidget* parent = nullptr);

    /// Hides that of QLabel, which is not virtual and does not update the tool tip.
    void setText(const QString& text);

    /// 0, the default, means no limit. To be set before the text is shown.
    void setMaximumLines(int count);

    /// The lines as they are painted at the current width.
    std::vector<QString> lines() const;

    bool isElided() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    int heightForWidth(int width) const override;

private:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

    int textWidth() const;
    int lineHeight() const;
    int linesAt(int width) const;
    void updateToolTip();

    int limit = 0;
    mutable std::optional<int> knownTextWidth; ///< cached, for the current font
};

} // namespace quillbox
