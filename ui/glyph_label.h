#pragma once

#include <QLabel>

namespace quillbox {

/// A label with a single glyph, such as a dot, which it centres vertically by its outline: its
/// position relative to the base line differs between font families.
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

    mutable QSize knownSize; ///< cached, for the current font; invalid if not yet computed
};

} // namespace quillbox
