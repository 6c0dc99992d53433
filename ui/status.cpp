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
    showFinderHint();
    if (menuStatusItem)
        menuStatusItem->setText(report.ready ? QStringLiteral("Finder: visible")
                                             : QStringLiteral("Finder: off"));
    if (statusItem)
        statusItem->setToolTip(QStringLiteral("Quillbox Helper — ")
                               + (report.ready ? QStringLiteral("Finder service visible") : text));
}

/// The status says that phones are visible, because they are advertised. Explains in the tool tip
/// of the status box why file managers list none all the same.
void AppDelegate::showFinderHint()
{
    const std::string hint = finderHint();
    if (QWidget* box = statusLabel.parentWidget())
        box->setToolTip(DisplayText::forToolTip(hint));
    statusLabel.setAccessibleDescription(DisplayText::forLabel(hint));
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
