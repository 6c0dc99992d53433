#include "app/app_delegate.h"
#include "platform/standard_error.h"
#include "ui/brand.h"

#include <QPalette>

namespace quillbox {

void AppDelegate::setStatus(const StatusReport& report)
{
    printToStandardError((report.ready ? "status: ready: " : "status: not ready: ") + report.text);

    const QString text = QString::fromStdString(report.text);
    QPalette palette = statusDot.palette();
    palette.setColor(QPalette::WindowText, report.ready ? Brand::green() : Brand::slate());
    statusDot.setPalette(palette);
    statusLabel.setText(text);
    if (menuStatusItem)
        menuStatusItem->setText(report.ready ? QStringLiteral("Finder: visible")
                                             : QStringLiteral("Finder: off"));
    if (statusItem)
        statusItem->setToolTip(QStringLiteral("Quillbox Helper — ")
                               + (report.ready ? QStringLiteral("Finder service visible") : text));
}

} // namespace quillbox
