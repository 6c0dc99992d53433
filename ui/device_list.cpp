#include "app/app_delegate.h"
#include "ui/brand.h"
#include "ui/device_row.h"
#include "ui/manage_button.h"
#include "ui/text_style.h"

#include <QBoxLayout>
#include <algorithm>

namespace quillbox {

namespace {

/// Low enough for letters that are all capitals.
constexpr int kHeadingHeight = 12;

std::vector<ManageButton*> manageButtons(const std::vector<QWidget*>& rows)
{
    std::vector<ManageButton*> buttons;
    for (QWidget* widget : rows) {
        const auto* row = dynamic_cast<DeviceRow*>(widget);
        if (row && row->manageButton())
            buttons.push_back(row->manageButton());
    }
    return buttons;
}

std::vector<QWidget*> takeAll(QLayout& layout)
{
    std::vector<QWidget*> widgets;
    while (const auto item = std::unique_ptr<QLayoutItem>(layout.takeAt(0)))
        widgets.push_back(item->widget());
    return widgets;
}

/// Of two phones of one name the first new button takes the place of the first old one.
void handOver(const std::vector<ManageButton*>& before, std::vector<ManageButton*> after)
{
    for (ManageButton* old : before) {
        const auto same = std::find_if(after.begin(), after.end(), [old](const ManageButton* one) {
            return one->property(AppDelegate::kManagementIdentifier)
                   == old->property(AppDelegate::kManagementIdentifier);
        });
        if (same == after.end())
            continue;
        (*same)->takeOver(*old);
        after.erase(same);
    }
}

} // namespace

void AppDelegate::updateDeviceList()
{
    auto& layout = *static_cast<QBoxLayout*>(deviceListStack.layout());
    const std::vector<QWidget*> before = takeAll(layout);
    deviceListStack.setHidden(discoveredDevices.empty());
    std::vector<QWidget*> rows;
    if (!discoveredDevices.empty()) {
        QLabel* heading =
            makeLabel(QStringLiteral("AVAILABLE QUILLBOX DEVICES"),
                      {.size = 10, .weight = QFont::DemiBold, .colour = Brand::slate()});
        heading->setFixedHeight(kHeadingHeight);
        layout.addWidget(heading);
        for (const DiscoveredDevice& device : discoveredDevices)
            rows.push_back(addDeviceRow(device));
    }
    QWidget* previous = &showInFinder;
    for (ManageButton* button : manageButtons(rows)) {
        QWidget::setTabOrder(previous, button);
        previous = button;
    }
    handOver(manageButtons(before), manageButtons(rows));
    for (QWidget* old : before) {
        // Not deleted at once: one of its buttons may be telling of its click.
        old->hide();
        old->setParent(window.get());
        old->deleteLater();
    }
    updateWindowHeight();
}

QWidget* AppDelegate::addDeviceRow(const DiscoveredDevice& device)
{
    auto& layout = *static_cast<QBoxLayout*>(deviceListStack.layout());
    auto* row = new DeviceRow(device.name);
    layout.addWidget(row);
    const auto match = std::find_if(managementDevices.begin(), managementDevices.end(),
                                    [&device](const DiscoveredDevice& candidate) {
                                        return canonicallyEqual(candidate.name, device.name);
                                    });
    if (match == managementDevices.end())
        return row;
    ManageButton& manage = row->addManageButton(match->name);
    manage.setProperty(kManagementIdentifier, QByteArray::fromStdString(match->name));
    connect(&manage, &QPushButton::clicked, this, [this, &manage] { openNamedManagement(manage); });
    return row;
}

} // namespace quillbox
