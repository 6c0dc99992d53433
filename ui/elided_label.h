#pragma once

#include <QLabel>
#include <QString>
#include <optional>
#include <string_view>

namespace quillbox {

/// A label of one line for a name of any length that some host on the network chose. What does not
/// fit is left out behind an ellipsis, and the tool tip then has the whole name. `text()`, and what
/// assistive programs read, is always whole, and the same from the start.
class ElidedLabel final : public QLabel {
public:
    /// `name` is UTF-8.
    explicit ElidedLabel(std::string_view name, QWidget* parent = nullptr);

    ElidedLabel(const ElidedLabel&) = delete;
    ElidedLabel& operator=(const ElidedLabel&) = delete;
    ~ElidedLabel() override = default;

    /// Whether the present width leaves something out.
    bool isElided() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

private:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    int textWidth() const;
    QSize sizeFor(int width) const;

    const QString toolTipWhenElided;
    mutable std::optional<int> knownTextWidth; ///< of the text in its font
};

} // namespace quillbox
