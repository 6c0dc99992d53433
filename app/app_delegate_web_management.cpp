#include "app/app_delegate.h"
#include "ui/shown_text.h"

#include <QCursor>
#include <QFont>
#include <QGuiApplication>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QWindow>
#include <algorithm>
#include <chrono>
#include <utility>

namespace quillbox {

namespace {

constexpr int kAlertIconSize = 48;

/// A desktop that has not brought the window to the front by then does not do it for this request.
constexpr std::chrono::seconds kLongestActivation{2};

/// A menu over a window, without an input grab. A Wayland compositor grants the grab of a popup
/// only for a click or a key in a window of the program, and a click in the desktop's panel is
/// none. So this menu gets the keys from its window, and closes when its window is clicked or loses
/// the focus.
class WindowMenu final : public QMenu {
public:
    explicit WindowMenu(QWidget& theWindow) : QMenu(&theWindow), window(theWindow)
    {
        setWindowFlags(Qt::ToolTip);
        // QMenu does that only if it is a popup.
        connect(this, &QMenu::triggered, this, &QWidget::close);
        patience->setSingleShot(true);
        patience->callOnTimeout(this, &QObject::deleteLater);
        qGuiApp->installEventFilter(this);
    }

    /// Opens it as soon as the window has the focus: at the pointer if that is in the window, else
    /// below `control`. If the window does not get the focus in time, deletes the menu.
    void openWhenActive(const QWidget& control)
    {
        waitingFor = &control;
        if (window.isActiveWindow())
            open();
        else
            patience->start(kLongestActivation);
    }

private:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (watched != window.windowHandle())
            return QMenu::eventFilter(watched, event);
        if (waitingFor && event->type() == QEvent::FocusIn)
            open();
        return isVisible() && handle(*event);
    }

    void open()
    {
        patience->stop();
        const QWidget& control = *std::exchange(waitingFor, nullptr);
        const QPoint pointer = QCursor::pos();
        popup(window.geometry().contains(pointer)
                  ? pointer
                  : control.mapToGlobal(control.rect().bottomLeft()));
    }

    /// Whether an event of the window is for the menu.
    bool handle(QEvent& event)
    {
        switch (event.type()) {
        case QEvent::KeyPress:
        case QEvent::KeyRelease:
            QCoreApplication::sendEvent(this, &event);
            return true;
        case QEvent::MouseButtonPress:
        case QEvent::TouchBegin:
            close();
            return true;
        case QEvent::FocusOut:
        case QEvent::Hide:
            close();
            return false;
        default:
            return false;
        }
    }

    const QWidget& window;
    const QWidget* waitingFor = nullptr; ///< where to open it; null once it was opened
    QTimer* const patience = new QTimer(this);
};

QMessageBox* makeAlert(QWidget& window)
{
    auto* alert = new QMessageBox(&window);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->setPalette(window.palette());
    alert->setIconPixmap(window.windowIcon().pixmap(kAlertIconSize));
    alert->setText(QStringLiteral("Enable web management on your phone"));
    alert->setInformativeText(
        QStringLiteral("In Quillbox, open Users and turn on Enable web management for your SMB "
                       "account. Start NAS, then return here."));
    // Not a standard button: the desktop's theme would translate it and give it a mnemonic.
    QPushButton* close = alert->addButton(QStringLiteral("OK"), QMessageBox::AcceptRole);
    alert->setDefaultButton(close);
    // QMessageBox provides no other access to its labels.
    for (auto* label : alert->findChildren<QLabel*>()) {
        label->setTextFormat(Qt::PlainText);
        if (label->text() != alert->text())
            continue;
        QFont font = label->font();
        font.setWeight(QFont::DemiBold);
        label->setFont(font);
    }
    return alert;
}

} // namespace

void AppDelegate::openManagement(const std::string& permission)
{
    if (managementDevices.size() == 1)
        return resolveManagement(managementDevices.front().endpoint, {.permission = permission});
    if (managementDevices.empty())
        explainWebManagement(permission);
    else
        popUpManagementMenu(permission);
}

void AppDelegate::openManagementMenu(const QAction& item)
{
    openManagementOf(item.data());
}

void AppDelegate::openNamedManagement(const QPushButton& button)
{
    openManagementOf(button.property(kManagementIdentifier));
}

/// `name` is stored in a menu item or a button. Does nothing if that phone is no longer there, or
/// if the value is missing or invalid, which converts to an empty name that no phone has.
void AppDelegate::openManagementOf(const QVariant& name)
{
    const std::string wanted = name.toByteArray().toStdString();
    const auto device = std::find_if(managementDevices.begin(), managementDevices.end(),
                                     [&wanted](const DiscoveredDevice& candidate) {
                                         return canonicallyEqual(candidate.name, wanted);
                                     });
    if (device != managementDevices.end())
        resolveManagement(device->endpoint);
}

void AppDelegate::resolveManagement(const Endpoint& endpoint, ManagementRequest request)
{
    if (managementResolver)
        managementResolver->cancel();
    const auto before = std::exchange(managementRequest, std::move(request));
    if (before.opened)
        before.opened("Another request to open web management came after this one");
    // Kept alive by this variable: start() may report at once, which resets managementResolver.
    const auto resolver =
        std::make_shared<ManagementResolver>(environment.dispatch, environment.network, endpoint,
                                             weakly(&AppDelegate::managementResolved));
    managementResolver = resolver;
    resolver->start();
}

void AppDelegate::managementResolved(const std::optional<std::string>& url)
{
    managementResolver = nullptr;
    const auto request = std::exchange(managementRequest, {});
    if (url) {
        environment.workspace.open(*url, request.permission, request.opened);
        return;
    }
    constexpr const char* kNotResolved =
        "Could not resolve management address. Check the phone is online.";
    setStatus({.ready = false, .text = kNotResolved});
    if (request.opened)
        request.opened(kNotResolved);
}

void AppDelegate::explainWebManagement(const std::string& permission)
{
    // When it is opened from the status menu, the window that it belongs to may be hidden.
    bringWindowForward(permission);
    for (auto* earlier : window->findChildren<QMessageBox*>(Qt::FindDirectChildrenOnly)) {
        // A closed one may not have been deleted yet.
        if (earlier->isVisible()) {
            earlier->raise();
            earlier->activateWindow();
            return;
        }
    }
    // Unlike exec(), this starts no nested event loop.
    makeAlert(*window)->open();
}

void AppDelegate::popUpManagementMenu(const std::string& permission)
{
    // Deleted later, because the chosen item is triggered after the menu has been hidden.
    for (auto* earlier : window->findChildren<QMenu*>(Qt::FindDirectChildrenOnly)) {
        earlier->close();
        earlier->deleteLater();
    }
    if (environment.windowPresence.canOpenMenuAnywhere()) {
        auto* menu = new QMenu(window.get());
        fillManagementMenu(*menu);
        menu->popup(QCursor::pos());
    } else {
        auto* menu = new WindowMenu(*window);
        fillManagementMenu(*menu);
        bringWindowForward(permission);
        menu->openWhenActive(*managementButton);
    }
}

void AppDelegate::fillManagementMenu(QMenu& menu)
{
    connect(&menu, &QMenu::aboutToHide, &menu, &QObject::deleteLater);
    for (const DiscoveredDevice& device : managementDevices) {
        QAction* item = menu.addAction(shownInMenu(device.name));
        item->setData(QByteArray::fromStdString(device.name));
        connect(item, &QAction::triggered, this, [this, item] { openManagementMenu(*item); });
    }
}

} // namespace quillbox
