#include "ui/accessible_role.h"

#include <QAccessibleWidget>
#include <QVariant>
#include <QWidget>

namespace quillbox {

namespace {

constexpr const char* kRole = "accessibleRole";

QAccessibleInterface* makeInterface(const QString& /*className*/, QObject* object)
{
    const QVariant role = object ? object->property(kRole) : QVariant();
    if (!role.isValid())
        return nullptr;
    return new QAccessibleWidget(static_cast<QWidget*>(object), QAccessible::Role(role.toInt()));
}

} // namespace

void setAccessibleRole(QWidget& widget, QAccessible::Role role)
{
    // Installing it again has no effect.
    QAccessible::installFactory(makeInterface);
    // A label already has an interface if it has a text.
    if (QAccessibleInterface* before = QAccessible::queryAccessibleInterface(&widget))
        QAccessible::deleteAccessibleInterface(QAccessible::uniqueId(before));
    widget.setProperty(kRole, static_cast<int>(role));
}

} // namespace quillbox
