#pragma once

#include <QLabel>

namespace quillbox {

/// A label of one sign, such as a dot, that stands in the middle of the label's height: where it
/// stands on a line of text differs from family to family.
class GlyphLabel final : public QLabel {
public:
    explicit GlyphLabel(const QString& glyph, QWidget* parent = nullptr);

    GlyphLabel(const GlyphLabel&) = delete;
    GlyphLabel& operator=(const GlyphLabel&) = delete;
    ~GlyphLabel() override = default;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

private:
    void changeEvent(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

    mutable QSize knownSize; ///< of the text in its font; none before it was asked for
};

} // namespace quillbox
