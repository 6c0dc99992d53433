#include "ui/device_row.h"

#include "ui/accessibility.h"
#include "ui/dot_label.h"
#include "ui/look/brand.h"
#include "ui/look/helper_style.h"
#include "ui/look/text_style.h"
#include "ui/paragraph_label.h"
#include "ui/shown_text.h"

#include <QHBoxLayout>

namespace quillbox {

namespace {

constexpr int kDeviceSpacing = 8;
/// The height of a row in the layout of the list; a button extends above and below it, into the
/// spacing.
constexpr int kTextHeight = 16;
constexpr int kOverhang = (HelperStyle::kButtonHeight - kTextHeight) / 2;

} // namespace

DeviceRow::DeviceRow(std::string_view name, QWidget* parent) : QFrame(parent)
{
    setProperty(HelperStyle::kOverhang, kOverhang);
    setFixedHeight(kTextHeight + 2 * kOverhang);
    setAccessibleRole(*this, QAccessible::ListItem);
    setAccessibleName(shownText(name));

    auto* dot = new DotLabel(this);
    TextStyle{.size = 12, .colour = Brand::green}.apply(*dot);
    dot->setAccessibleName(QStringLiteral("Available"));
    auto* label = new ParagraphLabel(shownText(name), this);
    label->setMaximumLines(1);
    TextStyle{.size = 12, .weight = QFont::Medium, .colour = Brand::navy}.apply(*label);
    QLabel* online = makeLabel(QStringLiteral("Online"), {.size = 11, .colour = Brand::green});

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(kDeviceSpacing);
    layout->addWidget(dot);
    // The name takes what is left, so that the other columns line up with those of other rows.
    layout->addWidget(label, 1);
    layout->addWidget(online);
}

ManageButton& DeviceRow::addManageButton(std::string_view name)
{
    manage = new ManageButton(name, this);
    manage->setFixedHeight(HelperStyle::kButtonHeight);
    layout()->addWidget(manage);
    return *manage;
}

void DeviceRow::leaveRoomForManageButton(int width)
{
    static_cast<QHBoxLayout*>(layout())->addSpacing(kDeviceSpacing + width);
}

ManageButton::ManageButton(std::string_view phoneName, QWidget* parent)
    : QPushButton(QStringLiteral("Manage"), parent)
{
    kButtonText.apply(*this);
    setAccessibleName(QStringLiteral("Manage ") + shownText(phoneName));
    setAccessibleDescription(
        QStringLiteral("Opens the web management page of this phone in the browser"));
}

ManageButton::Use ManageButton::use() const
{
    return {window()->focusWidget() == this, isDown(), isHeldByPointer};
}

void ManageButton::goOnWith(const Use& use)
{
    if (use.hasFocus)
        setFocus(Qt::OtherFocusReason);
    if (!use.isDown)
        return;
    setDown(true);
    isHeldByPointer = use.isHeldByPointer;
    // The release event goes to the widget that was pressed, unless this one grabs the mouse.
    if (isHeldByPointer)
        grabMouse();
}

void ManageButton::mousePressEvent(QMouseEvent* event)
{
    QPushButton::mousePressEvent(event);
    isHeldByPointer = isDown();
}

void ManageButton::mouseReleaseEvent(QMouseEvent* event)
{
    isHeldByPointer = false;
    if (mouseGrabber() == this)
        releaseMouse();
    // Last, because the click may do anything.
    QPushButton::mouseReleaseEvent(event);
}

/// Ends a press, because without a grab, which the desktop may refuse, no release event arrives.
void ManageButton::leaveEvent(QEvent* /*event*/)
{
    setDown(false);
}

} // namespace quillbox
