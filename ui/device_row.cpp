#include "ui/device_row.h"

#include "ui/brand.h"
#include "ui/display_text.h"
#include "ui/elided_label.h"
#include "ui/glyph_label.h"
#include "ui/helper_style.h"
#include "ui/manage_button.h"
#include "ui/text_style.h"

#include <QHBoxLayout>

namespace quillbox {

namespace {

constexpr int kSpacing = 8;
/// What the list counts with; a button stands out of it into the spacing on both sides.
constexpr int kTextHeight = 16;
constexpr int kOverhang = 2;

} // namespace

DeviceRow::DeviceRow(std::string_view name, QWidget* parent) : QFrame(parent)
{
    setProperty(HelperStyle::kOverhang, kOverhang);
    setFixedHeight(kTextHeight + 2 * kOverhang);
    setAccessibleName(DisplayText::forLabel(name));

    auto* dot = new GlyphLabel(QStringLiteral("●"));
    TextStyle{.size = 12, .colour = Brand::green()}.apply(*dot);
    dot->setAccessibleName(QStringLiteral("Available"));
    auto* label = new ElidedLabel(name);
    TextStyle{.size = 12, .weight = QFont::Medium, .colour = Brand::navy()}.apply(*label);
    label->setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Preferred);
    auto* online = makeLabel(QStringLiteral("Online"), {.size = 11, .colour = Brand::green()});

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(kSpacing);
    layout->addWidget(dot);
    layout->addWidget(label);
    layout->addWidget(online);
    layout->addStretch();
}

ManageButton& DeviceRow::addManageButton(std::string_view name)
{
    manage = new ManageButton(name);
    manage->setFixedHeight(kTextHeight + 2 * kOverhang);
    auto* row = static_cast<QHBoxLayout*>(layout());
    row->insertWidget(row->count() - 1, manage);
    return *manage;
}

} // namespace quillbox
