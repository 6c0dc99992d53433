#include "ui/accessibility.h"

#include <QAbstractButton>
#include <QAccessibleWidget>
#include <QVariant>
#include <QWidget>

namespace quillbox {

namespace {

constexpr const char* kRole = "accessibleRole";
constexpr const char* kExpanded = "accessibleExpanded";

/// The role that was set; NoRole if none was.
QAccessible::Role roleOf(const QObject& widget)
{
    return static_cast<QAccessible::Role>(widget.property(kRole).toInt());
}

class ListInterface final : public QAccessibleWidget {
public:
    explicit ListInterface(QWidget& list) : QAccessibleWidget(&list, QAccessible::List) {}

    int childCount() const override { return static_cast<int>(items().size()); }

    QAccessibleInterface* child(int index) const override
    {
        return QAccessible::queryAccessibleInterface(items().value(index));
    }

    int indexOfChild(const QAccessibleInterface* child) const override
    {
        return static_cast<int>(items().indexOf(child->object()));
    }

private:
    QList<QObject*> items() const
    {
        QList<QObject*> found;
        for (QObject* child : widget()->children()) {
            if (roleOf(*child) == QAccessible::ListItem)
                found.append(child);
        }
        return found;
    }
};

/// A button whose main action is a click. (Qt has such a class too, but not in its public headers.)
class ButtonInterface final : public QAccessibleWidget {
public:
    explicit ButtonInterface(QAbstractButton& shown) : QAccessibleWidget(&shown, roleOf(shown)) {}

    QString text(QAccessible::Text kind) const override
    {
        const QString given = QAccessibleWidget::text(kind);
        return kind == QAccessible::Name && given.isEmpty() ? button().text() : given;
    }

    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        state.pressed = button().isDown();
        state.checkable = button().isCheckable();
        state.checked = button().isChecked();
        const QVariant expanded = button().property(kExpanded);
        state.expandable = expanded.isValid();
        state.expanded = expanded.toBool();
        state.collapsed = state.expandable && !state.expanded;
        return state;
    }

    QStringList actionNames() const override
    {
        return QStringList(mainAction()) + QAccessibleWidget::actionNames();
    }

    void doAction(const QString& name) override
    {
        if (name == mainAction())
            button().click();
        else
            QAccessibleWidget::doAction(name);
    }

private:
    QAbstractButton& button() const { return *static_cast<QAbstractButton*>(widget()); }

    QString mainAction() const { return button().isCheckable() ? toggleAction() : pressAction(); }
};

QAccessibleInterface* makeInterface(const QString& /*className*/, QObject* object)
{
    const QAccessible::Role role = object ? roleOf(*object) : QAccessible::NoRole;
    if (role == QAccessible::NoRole)
        return nullptr;
    if (auto* button = qobject_cast<QAbstractButton*>(object))
        return new ButtonInterface(*button);
    auto& widget = *static_cast<QWidget*>(object);
    if (role == QAccessible::List)
        return new ListInterface(widget);
    return new QAccessibleWidget(&widget, role);
}

} // namespace

void setAccessibleRole(QWidget& widget, QAccessible::Role role)
{
    // Installing it again has no effect.
    QAccessible::installFactory(makeInterface);
    // A widget already has an interface if it has a text.
    if (QAccessibleInterface* before = QAccessible::queryAccessibleInterface(&widget))
        QAccessible::deleteAccessibleInterface(QAccessible::uniqueId(before));
    widget.setProperty(kRole, static_cast<int>(role));
}

void setAccessibleExpanded(QAbstractButton& button, bool isExpanded)
{
    button.setProperty(kExpanded, isExpanded);
    QAccessible::State changed;
    changed.expanded = true;
    changed.collapsed = true;
    QAccessibleStateChangeEvent event(&button, changed);
    QAccessible::updateAccessibility(&event);
}

} // namespace quillbox
