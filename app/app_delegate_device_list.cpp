#include "app/app_delegate.h"
#include "ui/device_row.h"
#include "ui/look/brand.h"
#include "ui/look/text_style.h"

#include <QByteArray>
#include <QLayout>
#include <QVariant>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace quillbox {

namespace {

/// Lower than a line of text, because the heading has capital letters only.
constexpr int kHeadingHeight = 12;

/// The name of a button's phone, and how many buttons above it are for phones of the same name.
using Phone = std::pair<QByteArray, int>;

std::vector<ManageButton*> manageButtons(const QWidget& list)
{
    std::vector<ManageButton*> buttons;
    for (QPushButton* button : list.findChildren<QPushButton*>())
        buttons.push_back(static_cast<ManageButton*>(button));
    return buttons;
}

std::map<Phone, ManageButton*> byPhone(const std::vector<ManageButton*>& buttons)
{
    std::map<QByteArray, int> places;
    std::map<Phone, ManageButton*> result;
    for (ManageButton* button : buttons) {
        const QByteArray name = button->property(AppDelegate::kManagementIdentifier).toByteArray();
        result[{name, places[name]++}] = button;
    }
    return result;
}

} // namespace

void AppDelegate::updateDeviceList()
{
    std::map<Phone, ManageButton::Use> uses;
    for (const auto& [phone, button] : byPhone(manageButtons(deviceListStack))) {
        uses[phone] = button->use();
        // Hiding it would move the focus, and a screen reader, to another control first.
        button->clearFocus();
    }
    // Adding a row to a visible list would show it at once and lay out all the others again.
    deviceListStack.hide();
    QLayout& layout = *deviceListStack.layout();
    while (const std::unique_ptr<QLayoutItem> old{layout.takeAt(layout.count() - 1)}) {
        // Deleted later: one of its buttons may be emitting clicked(). A new parent hides it.
        old->widget()->setParent(window.get());
        old->widget()->deleteLater();
    }

    // Of several web services with the same name, the first one counts.
    std::unordered_map<std::string, const DiscoveredDevice*> managements;
    for (const DiscoveredDevice& management : managementDevices)
        managements.emplace(normalized(management.name), &management);
    std::vector<DeviceRow*> rows;
    if (!discoveredDevices.empty()) {
        addHeading();
        for (const DiscoveredDevice& device : discoveredDevices) {
            const auto match = managements.find(normalized(device.name));
            rows.push_back(
                addDeviceRow(device, match == managements.end() ? nullptr : match->second));
        }
        deviceListStack.show();
    }

    const std::vector<ManageButton*> buttons = manageButtons(deviceListStack);
    for (DeviceRow* row : rows) {
        // All buttons are equally wide.
        if (!buttons.empty() && !row->manageButton())
            row->leaveRoomForManageButton(buttons.front()->sizeHint().width());
    }
    QWidget* previous = &showInFinder;
    for (ManageButton* button : buttons) {
        QWidget::setTabOrder(previous, button);
        previous = button;
    }
    const auto successors = byPhone(buttons);
    for (const auto& [phone, use] : uses) {
        if (const auto successor = successors.find(phone); successor != successors.end())
            successor->second->goOnWith(use);
        else if (use.hasFocus)
            managementButton->setFocus(Qt::OtherFocusReason); // the next control below the list
    }
    updateWindowHeight();
}

void AppDelegate::addHeading()
{
    QLabel* heading = makeLabel(QStringLiteral("AVAILABLE QUILLBOX DEVICES"),
                                {.size = 10, .weight = QFont::DemiBold, .colour = Brand::slate});
    heading->setFixedHeight(kHeadingHeight);
    deviceListStack.layout()->addWidget(heading);
}

/// `management` is the web service with that name; null if there is none.
DeviceRow* AppDelegate::addDeviceRow(const DiscoveredDevice& device,
                                     const DiscoveredDevice* management)
{
    auto* row = new DeviceRow(device.name, &deviceListStack);
    deviceListStack.layout()->addWidget(row);
    if (!management)
        return row;
    ManageButton& manage = row->addManageButton(management->name);
    manage.setProperty(kManagementIdentifier, QByteArray::fromStdString(management->name));
    connect(&manage, &QPushButton::clicked, this, [this, &manage] { openNamedManagement(manage); });
    return row;
}

} // namespace quillbox
