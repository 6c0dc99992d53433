#pragma once

#include <QColor>
#include <QWidget>

namespace quillbox {

/// A box with rounded corners and a border of one pixel inside its edges.
class RoundedBox final : public QWidget {
public:
    struct Look {
        int radius = 0;
        QColor fill;
        QColor border;
    };

    explicit RoundedBox(Look boxLook, QWidget* parent = nullptr);

    static void paint(QPainter& painter, const QRect& area, const Look& look);

private:
    void paintEvent(QPaintEvent* event) override;

    const Look look;
};

} // namespace quillbox
