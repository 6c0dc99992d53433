#include "ui/manage_button.h"

#include "ui/brand.h"
#include "ui/display_text.h"
#include "ui/text_style.h"

namespace quillbox {

ManageButton::ManageButton(std::string_view phoneName, QWidget* parent)
    : QPushButton(QStringLiteral("Manage"), parent)
{
    TextStyle{.size = kButtonTextSize, .weight = QFont::Medium, .colour = Brand::navy()}.apply(
        *this);
    setAccessibleName(QStringLiteral("Manage ") + DisplayText::forLabel(phoneName));
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
