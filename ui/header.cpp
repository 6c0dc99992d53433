#include "ui/header.h"

#include "ui/look/brand.h"
#include "ui/look/text_style.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QVBoxLayout>
#include <utility>

namespace quillbox {

namespace {

constexpr int kIconSize = 58;
constexpr int kHeaderSpacing = 16;
constexpr int kTitleSpacing = 1;

/// Draws the icon at the scale of the screen that the window is currently on.
class IconView final : public QWidget {
public:
    explicit IconView(QIcon shownIcon) : icon(std::move(shownIcon))
    {
        setFixedSize(kIconSize, kIconSize);
    }

private:
    void paintEvent(QPaintEvent* /*event*/) override
    {
        QPainter painter(this);
        icon.paint(&painter, rect());
    }

    const QIcon icon;
};

} // namespace

QWidget* makeHeader(const QIcon& icon)
{
    auto* header = new QWidget;
    auto* row = new QHBoxLayout(header);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(kHeaderSpacing);
    if (!icon.isNull())
        row->addWidget(new IconView(icon));

    auto* titles = new QVBoxLayout;
    titles->setSpacing(kTitleSpacing);
    titles->addStretch();
    titles->addWidget(makeLabel(QStringLiteral("Quillbox Helper"),
                                {.size = 25, .weight = QFont::Bold, .colour = Brand::navy()}));
    titles->addWidget(makeLabel(QStringLiteral("The desktop companion of the Quillbox app"),
                                {.size = 11, .weight = QFont::Medium, .colour = Brand::slate()}));
    titles->addStretch();
    row->addLayout(titles);
    return header;
}

} // namespace quillbox
