#pragma once

#include <QLabel>
#include <QString>
#include <optional>
#include <string_view>

namespace quillbox {

/// A single-line label for a name of any length that some host on the network chose. A name that
/// does not fit is elided, and the tool tip then shows all of it. `text()`, and what assistive
/// technologies read, is always the whole name.
class ElidedLabel final : public QLabel {
public:
    /// `name` is UTF-8.
    explicit ElidedLabel(std::string_view name, QWidget* parent = nullptr);

    ElidedLabel(const ElidedLabel&) = delete;
    ElidedLabel& operator=(const ElidedLabel&) = delete;
    ~ElidedLabel() override = default;

    /// Whether the name does not fit into the current width.
    bool isElided() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

private:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    int textWidth() const;
    QSize sizeFor(int width) const;

    const QString toolTipWhenElided;
    mutable std::optional<int> knownTextWidth; ///< cached, for the current font
};

} // namespace quillbox
