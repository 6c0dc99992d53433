#include "platform/desktop/opening/notice.h"

#include "platform/values/standard_error.h"

#include <QApplication>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QMessageBox>
#include <QStringList>
#include <QVariantMap>
#include <functional>
#include <string>
#include <utility>

namespace quillbox {

namespace {

QString shown(const std::string& text)
{
    return QString::fromStdString(printable(text));
}

class NoticeWindow final : public Notice {
public:
    void show(const std::string& title, const std::string& text, Delivered delivered) override
    {
        whenClosed = std::move(delivered);
        if (!box) {
            box = std::make_unique<QMessageBox>();
            box->setIcon(QMessageBox::Warning);
            box->setTextFormat(Qt::PlainText);
            box->setStandardButtons(QMessageBox::Ok);
            box->setModal(false);
            QObject::connect(box.get(), &QDialog::finished, box.get(), [this] {
                if (const auto report = std::exchange(whenClosed, nullptr))
                    report();
            });
        }
        box->setWindowTitle(QGuiApplication::applicationDisplayName());
        // Not as the informative text, which is shown as markup if it looks like markup.
        box->setText(shown(title) + QStringLiteral("\n\n") + shown(text));
        box->show();
        box->raise();
        box->activateWindow();
    }

private:
    Delivered whenClosed;
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
    void show(const std::string& title, const std::string& text, Delivered delivered) override
    {
        const Message message{.title = title, .text = text, .delivered = std::move(delivered)};
        ask(QStringLiteral("GetCapabilities"), {}, message,
            [this, message](const QDBusMessage& answer) {
                send(message, answer.arguments().value(0).toStringList().contains(
                                  QStringLiteral("body-markup")));
            });
    }

private:
    struct Message {
        std::string title;
        std::string text;
        Delivered delivered;
    };

    void send(const Message& message, bool hasMarkup)
    {
        const QVariantMap hints{
            {QStringLiteral("desktop-entry"), QGuiApplication::desktopFileName()}};
        const QString body = hasMarkup ? shown(message.text).toHtmlEscaped() : shown(message.text);
        ask(QStringLiteral("Notify"),
            {QGuiApplication::applicationDisplayName(), last, QGuiApplication::desktopFileName(),
             shown(message.title), body, QStringList(), hints, kUsualTime},
            message, [this, delivered = message.delivered](const QDBusMessage& answer) {
                last = answer.arguments().value(0).toUInt();
                if (delivered)
                    delivered();
            });
    }

    void ask(const QString& method, const QVariantList& arguments, const Message& message,
             const std::function<void(const QDBusMessage&)>& answered)
    {
        if (!bus.isConnected()) {
            // QtDBus would never report a result.
            substitute.show(message.title, message.text, message.delivered);
            return;
        }
        const QString name = QStringLiteral("org.freedesktop.Notifications");
        QDBusMessage call = QDBusMessage::createMethodCall(
            name, QStringLiteral("/org/freedesktop/Notifications"), name, method);
        call.setArguments(arguments);
        auto* watcher = new QDBusPendingCallWatcher(
            bus.asyncCall(call, static_cast<int>(limit.count())), &context);
        QObject::connect(watcher, &QDBusPendingCallWatcher::finished, &context,
                         [this, message, answered](QDBusPendingCallWatcher* finished) {
                             finished->deleteLater();
                             if (finished->isError())
                                 substitute.show(message.title, message.text, message.delivered);
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
