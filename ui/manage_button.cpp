#include "ui/manage_button.h"

#include "ui/brand.h"
#include "ui/display_text.h"
#include "ui/text_style.h"

namespace quillbox {

ManageButton::ManageButton(std::string_view phoneName, QWidget* parent)
    : QPushButton(QStringLiteral("Manage"), parent)
{
    TextStyle{.size = 11, .weight = QFont::Medium, .colour = Brand::navy()}.apply(*this);
    setAccessibleName(QStringLiteral("Manage ") + DisplayText::forLabel(phoneName));
    setAccessibleDescription(
        QStringLiteral("Opens the web management page of this phone in the browser"));
}

void ManageButton::goOnWith(const Use& use)
{
    if (use.hasFocus)
        setFocus(Qt::OtherFocusReason);
    if (!use.isDown)
        return;
    setDown(true);
    isHeldByPointer = use.isHeldByPointer;
    // The release belongs to the widget that was pressed: this one hears of it only by a grab.
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
    // Last, because the click may have anything done.
    QPushButton::mouseReleaseEvent(event);
}

/// Where the desktop refuses a grab, nobody tells of the release.
void ManageButton::leaveEvent(QEvent* event)
{
    setDown(false);
    QPushButton::leaveEvent(event);
}

} // namespace quillbox
