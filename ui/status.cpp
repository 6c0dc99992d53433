#include "app/app_delegate.h"
#include "platform/standard_error.h"
#include "ui/brand.h"
#include "ui/display_text.h"

#include <QAccessible>
#include <QPalette>

namespace quillbox {

void AppDelegate::setStatus(const StatusReport& report)
{
    printToStandardError((report.ready ? "status: ready: " : "status: not ready: ") + report.text);

    lastReport = report;
    const QString text = DisplayText::forLabel(report.text);
    QPalette palette = statusDot.palette();
    palette.setColor(QPalette::WindowText, report.ready ? Brand::green() : Brand::slate());
    statusDot.setPalette(palette);
    statusDot.setAccessibleName(report.ready ? QStringLiteral("Finder service on")
                                             : QStringLiteral("Finder service off"));
    announce(text);
    if (menuStatusItem)
        menuStatusItem->setText(report.ready ? QStringLiteral("Finder: visible")
                                             : QStringLiteral("Finder: off"));
    if (statusItem)
        statusItem->setToolTip(QStringLiteral("Quillbox Helper — ")
                               + (report.ready ? QStringLiteral("Finder service visible") : text));
}

/// Shows a status and has screen readers announce it: they announce notifications when these
/// appear, but read labels only when the user navigates to them.
void AppDelegate::announce(const QString& status)
{
    if (status == statusLabel.text())
        return;
    statusLabel.setText(status);
    statusLabel.setAccessibleName(status);
    if (!statusLabel.isVisible())
        return;
    QAccessibleEvent appearance(&statusLabel, QAccessible::ObjectShow);
    QAccessible::updateAccessibility(&appearance);
}

} // namespace quillbox
