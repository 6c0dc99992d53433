#include "platform/desktop/notice.h"

#include "platform/standard_error.h"

#include <QApplication>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QMessageBox>
#include <QStringList>
#include <QVariantMap>
#include <utility>

namespace quillbox {

namespace {

QString shown(const std::string& text)
{
    return QString::fromStdString(printable(text));
}

class NoticeWindow final : public Notice {
public:
    void show(const std::string& title, const std::string& text) override
    {
        if (!box) {
            box = std::make_unique<QMessageBox>();
            box->setIcon(QMessageBox::Warning);
            box->setTextFormat(Qt::PlainText);
            box->setStandardButtons(QMessageBox::Ok);
            box->setModal(false);
        }
        box->setWindowTitle(QGuiApplication::applicationDisplayName());
        // Not as the informative text, which is shown as markup if it looks like markup.
        box->setText(shown(title) + QStringLiteral("\n\n") + shown(text));
        box->show();
        box->raise();
        box->activateWindow();
    }

private:
    std::unique_ptr<QMessageBox> box; ///< null until something is shown
};

class Notification final : public Notice {
public:
    Notification(QDBusConnection sessionBus, Notice& noticeElsewhere,
                 std::chrono::milliseconds patience)
        : bus(std::move(sessionBus)), substitute(noticeElsewhere), limit(patience)
    {
    }

    /// Asks first whether the service would interpret markup in the text.
    void show(const std::string& title, const std::string& text) override
    {
        ask(QStringLiteral("GetCapabilities"), {}, title, text,
            [this, title, text](const QDBusMessage& answer) {
                const bool hasMarkup = answer.arguments().value(0).toStringList().contains(
                    QStringLiteral("body-markup"));
                send(title, text, hasMarkup ? shown(text).toHtmlEscaped() : shown(text));
            });
    }

private:
    void send(const std::string& title, const std::string& text, const QString& body)
    {
        const QVariantMap hints{
            {QStringLiteral("desktop-entry"), QGuiApplication::desktopFileName()}};
        ask(QStringLiteral("Notify"),
            {QGuiApplication::applicationDisplayName(), last, QGuiApplication::desktopFileName(),
             shown(title), body, QStringList(), hints, kUsualTime},
            title, text,
            [this](const QDBusMessage& answer) { last = answer.arguments().value(0).toUInt(); });
    }

    void ask(const QString& method, const QVariantList& arguments, const std::string& title,
             const std::string& text, const std::function<void(const QDBusMessage&)>& answered)
    {
        if (!bus.isConnected()) {
            substitute.show(title, text); // QtDBus would never report a result
            return;
        }
        const QString name = QStringLiteral("org.freedesktop.Notifications");
        QDBusMessage call = QDBusMessage::createMethodCall(
            name, QStringLiteral("/org/freedesktop/Notifications"), name, method);
        call.setArguments(arguments);
        auto* watcher = new QDBusPendingCallWatcher(
            bus.asyncCall(call, static_cast<int>(limit.count())), &context);
        QObject::connect(watcher, &QDBusPendingCallWatcher::finished, &context,
                         [this, title, text, answered](QDBusPendingCallWatcher* finished) {
                             finished->deleteLater();
                             if (finished->isError())
                                 substitute.show(title, text);
                             else
                                 answered(finished->reply());
                         });
    }

    static constexpr int kUsualTime = -1; ///< the service's own time until it hides one

    QDBusConnection bus;
    Notice& substitute;
    const std::chrono::milliseconds limit;
    uint last = 0; ///< the identifier of the notification to replace; 0: none
    QObject context;
};

} // namespace

std::unique_ptr<Notice> makeNoticeWindow()
{
    return std::make_unique<NoticeWindow>();
}

std::unique_ptr<Notice> makeNotification(const QDBusConnection& sessionBus, Notice& substitute,
                                         std::chrono::milliseconds limit)
{
    return std::make_unique<Notification>(sessionBus, substitute, limit);
}

} // namespace quillbox
