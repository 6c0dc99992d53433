#include "app/app_delegate.h"
#include "ui/brand.h"

#include <QHBoxLayout>
#include <QPalette>
#include <QVBoxLayout>
#include <memory>

namespace quillbox {

namespace {

/// Plain text: device names come from the network.
QLabel* plainLabel(const QString& text, const QColor& colour)
{
    auto* label = new QLabel;
    label->setTextFormat(Qt::PlainText);
    label->setText(text);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, colour);
    label->setPalette(palette);
    return label;
}

QWidget* deviceRow(const DiscoveredDevice& device)
{
    auto* row = new QWidget;
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(plainLabel(QStringLiteral("●"), Brand::green()));
    layout->addWidget(plainLabel(QString::fromStdString(device.name), Brand::navy()));
    layout->addWidget(plainLabel(QStringLiteral("Online"), Brand::green()));
    layout->addStretch();
    return row;
}

void removeAll(QLayout& layout)
{
    while (const auto item = std::unique_ptr<QLayoutItem>(layout.takeAt(0)))
        delete item->widget();
}

} // namespace

void AppDelegate::updateDeviceList()
{
    QLayout& layout = *deviceListStack.layout();
    removeAll(layout);
    deviceListStack.setHidden(discoveredDevices.empty());
    if (!discoveredDevices.empty()) {
        layout.addWidget(plainLabel(QStringLiteral("AVAILABLE QUILLBOX DEVICES"), Brand::slate()));
        for (const DiscoveredDevice& device : discoveredDevices)
            layout.addWidget(deviceRow(device));
    }
    updateWindowHeight();
}

} // namespace quillbox
