#pragma once

#include <QLabel>

namespace quillbox {

/// A label with a dot in the colour of its text. Its size depends on the font size only: the dots
/// of font families differ in size and position by half, and many families have none.
class DotLabel final : public QLabel {
public:
    explicit DotLabel(QWidget* parent = nullptr);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

private:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace quillbox
