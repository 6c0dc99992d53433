#include "app/app_delegate.h"
#include "ui/brand.h"
#include "ui/device_row.h"
#include "ui/manage_button.h"
#include "ui/text_style.h"

#include <QLayout>
#include <QVariant>
#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace quillbox {

namespace {

/// Lower than a line of text, because the heading has capital letters only.
constexpr int kHeadingHeight = 12;

std::vector<DeviceRow*> rowsAmong(const std::vector<QWidget*>& widgets)
{
    std::vector<DeviceRow*> rows;
    for (QWidget* widget : widgets) {
        if (auto* row = dynamic_cast<DeviceRow*>(widget))
            rows.push_back(row);
    }
    return rows;
}

std::vector<ManageButton*> manageButtons(const std::vector<DeviceRow*>& rows)
{
    std::vector<ManageButton*> buttons;
    for (const DeviceRow* row : rows) {
        if (row->manageButton())
            buttons.push_back(row->manageButton());
    }
    return buttons;
}

/// If there are buttons, all of them equally wide, the rows without one leave room for it.
void lineUp(const std::vector<DeviceRow*>& rows, const std::vector<ManageButton*>& buttons)
{
    if (buttons.empty())
        return;
    const int width = buttons.front()->sizeHint().width();
    for (DeviceRow* row : rows) {
        if (!row->manageButton())
            row->leaveRoomForManageButton(width);
    }
}

std::vector<QWidget*> takeAll(QLayout& layout)
{
    std::vector<QWidget*> widgets;
    // From the end, so that no other items have to be moved.
    while (layout.count() > 0) {
        const std::unique_ptr<QLayoutItem> item(layout.takeAt(layout.count() - 1));
        widgets.push_back(item->widget());
    }
    std::ranges::reverse(widgets);
    return widgets;
}

QVariant identifierOf(const ManageButton& button)
{
    return button.property(AppDelegate::kManagementIdentifier);
}

/// A button that is focused or pressed. If several phones have the same name, its state passes to
/// the button at the same place among them.
struct UsedButton {
    ManageButton* button = nullptr;
    std::ptrdiff_t place = 0;
    ManageButton::Use use;
};

std::ptrdiff_t placeOf(const ManageButton& button, const std::vector<ManageButton*>& buttons)
{
    const auto end = std::ranges::find(buttons, &button);
    return std::count_if(buttons.begin(), end, [&button](const ManageButton* other) {
        return identifierOf(*other) == identifierOf(button);
    });
}

std::vector<UsedButton> usedAmong(const std::vector<ManageButton*>& buttons)
{
    std::vector<UsedButton> used;
    for (ManageButton* button : buttons) {
        const ManageButton::Use use = button->use();
        if (use.hasFocus || use.isDown)
            used.push_back({button, placeOf(*button, buttons), use});
    }
    return used;
}

/// The button that replaces a used one; null if there is none.
ManageButton* successorOf(const UsedButton& used, const std::vector<ManageButton*>& buttons)
{
    std::ptrdiff_t before = used.place;
    for (ManageButton* button : buttons) {
        if (identifierOf(*button) == identifierOf(*used.button) && before-- == 0)
            return button;
    }
    return nullptr;
}

/// For each device the first web service with its name; null if there is none.
std::vector<const DiscoveredDevice*>
managementsOf(const std::vector<DiscoveredDevice>& devices,
              const std::vector<DiscoveredDevice>& managementDevices)
{
    std::unordered_map<std::string, const DiscoveredDevice*> byName;
    for (const DiscoveredDevice& management : managementDevices)
        byName.emplace(normalized(management.name), &management);
    std::vector<const DiscoveredDevice*> managements;
    for (const DiscoveredDevice& device : devices) {
        const auto match = byName.find(normalized(device.name));
        managements.push_back(match == byName.end() ? nullptr : match->second);
    }
    return managements;
}

} // namespace

void AppDelegate::updateDeviceList()
{
    const std::vector<QWidget*> before = takeAll(*deviceListStack.layout());
    const std::vector<UsedButton> used = usedAmong(manageButtons(rowsAmong(before)));
    const auto managements = managementsOf(discoveredDevices, managementDevices);
    // Hiding it would move the focus, and a screen reader, to another control first.
    for (const UsedButton& one : used)
        one.button->clearFocus();
    // Adding a row to a visible list would show it at once and lay out all the others again.
    deviceListStack.hide();
    for (QWidget* old : before) {
        // Deleted later: one of its buttons may be emitting clicked(). A new parent hides it.
        old->setParent(window.get());
        old->deleteLater();
    }
    std::vector<DeviceRow*> rows;
    if (!discoveredDevices.empty()) {
        addHeading();
        for (std::size_t index = 0; index < discoveredDevices.size(); ++index)
            rows.push_back(addDeviceRow(discoveredDevices[index], managements[index]));
        deviceListStack.show();
    }
    const std::vector<ManageButton*> buttons = manageButtons(rows);
    lineUp(rows, buttons);
    QWidget* previous = &showInFinder;
    for (ManageButton* button : buttons) {
        QWidget::setTabOrder(previous, button);
        previous = button;
    }
    for (const UsedButton& one : used) {
        if (ManageButton* successor = successorOf(one, buttons))
            successor->goOnWith(one.use);
        else if (one.use.hasFocus)
            managementButton->setFocus(Qt::OtherFocusReason); // the next control below the list
    }
    updateWindowHeight();
}

void AppDelegate::addHeading()
{
    QLabel* heading = makeLabel(QStringLiteral("AVAILABLE QUILLBOX DEVICES"),
                                {.size = 10, .weight = QFont::DemiBold, .colour = Brand::slate()});
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
