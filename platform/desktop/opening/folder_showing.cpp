#include "platform/desktop/opening/folder_showing.h"

#include "platform/desktop/opening/folder_handler.h"
#include "platform/desktop/process/command.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QSocketNotifier>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>
#include <chrono>
#include <limits>
#include <utility>
#include <vector>

namespace quillbox {

namespace {

/// The object of a program that opens URLs over D-Bus (Desktop Entry Specification, D-Bus
/// Activation).
QString objectPathOf(const QString& busName)
{
    return u'/' + QString(busName).replace(u'.', u'/').replace(u'-', u'_');
}

class FolderShowing final : public QObject {
public:
    FolderShowing(const FileBrowserMeans& browserMeans, const std::string& folderUrl,
                  const std::string& activationToken, FolderShown whenShown)
        : means(browserMeans),
          inheritance(withActivationToken(browserMeans.inheritance, activationToken)),
          url(folderUrl),
          token(activationToken),
          shown(std::move(whenShown))
    {
        limit.setSingleShot(true);
        connect(&limit, &QTimer::timeout, this, [this] { endInTime(); });
        limit.start(means.limit);
        askForHandler();
    }

private:
    void askForHandler()
    {
        run({"env", "LC_ALL=C", "gio", "mime", "inode/directory"}, Command::Output::Collected,
            [this](const Command::Result& result) {
                const auto handler =
                    result.isSuccess ? folderHandlerFor(url, result.output) : std::nullopt;
                if (!handler)
                    askFileManager();
                else if (handler->busName.empty())
                    startHandler(handler->arguments);
                else
                    askHandler(*handler);
            });
    }

    void askHandler(const FolderHandler& handler)
    {
        const QString name = QString::fromStdString(handler.busName);
        QVariantMap data;
        if (!token.empty()) {
            data[QStringLiteral("activation-token")] = QString::fromStdString(token);
            data[QStringLiteral("desktop-startup-id")] = QString::fromStdString(token);
        }
        ask(QDBusMessage::createMethodCall(name, objectPathOf(name),
                                           QStringLiteral("org.freedesktop.Application"),
                                           QStringLiteral("Open")),
            {QStringList(QString::fromStdString(url)), data}, kWithHandler,
            [this, arguments = handler.arguments] { startHandler(arguments); });
    }

    /// Without standard error: the file manager may outlive this process, and would be killed by
    /// SIGPIPE if that is a pipe. Once more if it fails: the new process of a file manager whose
    /// last window was closed a moment ago may have found the old one, which ends without an answer
    /// (PCManFM).
    void startHandler(const std::vector<std::string>& arguments)
    {
        outcome = startWatched(arguments, inheritance, means.moment);
        if (!outcome.isOpen())
            return askFileManager();
        asked = kWithHandler;
        started = std::make_unique<QSocketNotifier>(outcome.get(), QSocketNotifier::Read);
        connect(started.get(), &QSocketNotifier::activated, this, [this, arguments] {
            // The notifier is emitting this signal: destroy it later.
            started->setEnabled(false);
            started.release()->deleteLater();
            if (hasStayed(outcome.get()))
                end(kWithHandler);
            else if (!std::exchange(hasHandlerFailed, true))
                startHandler(arguments);
            else
                askFileManager();
        });
    }

    void askFileManager()
    {
        const QString name = QStringLiteral("org.freedesktop.FileManager1");
        ask(QDBusMessage::createMethodCall(name, QStringLiteral("/org/freedesktop/FileManager1"),
                                           name, QStringLiteral("ShowFolders")),
            {QStringList(QString::fromStdString(url)), QString::fromStdString(token)},
            "the file manager", [this] { mount(); });
    }

    /// The bus returns an error at once if the name has no owner and cannot be activated.
    void ask(QDBusMessage call, const QVariantList& arguments, const char* whom,
             const std::function<void()>& whenRefused)
    {
        if (!means.bus.isConnected()) {
            whenRefused(); // QtDBus would never report a result
            return;
        }
        call.setArguments(arguments);
        asked = whom;
        question = std::make_unique<QDBusPendingCallWatcher>(
            means.bus.asyncCall(call, std::numeric_limits<int>::max()));
        connect(question.get(), &QDBusPendingCallWatcher::finished, this,
                [this, whom, whenRefused](QDBusPendingCallWatcher* watcher) {
                    // The watcher is emitting this signal: destroy it later.
                    question.release()->deleteLater();
                    if (!watcher->isError())
                        return end(whom);
                    means.log.tell(LogCategory::Desktop, [&] {
                        return whom + (" failed: " + watcher->error().name().toStdString());
                    });
                    whenRefused();
                });
    }

    /// The result is ignored, because the share may be mounted already: openMounted() shows it.
    void mount()
    {
        run({"gio", "mount", url}, Command::Output::Discarded,
            [this](const Command::Result&) { openMounted(); });
    }

    void openMounted()
    {
        run({"gio", "open", url}, Command::Output::Discarded,
            [this](const Command::Result& result) {
                end(result.isSuccess ? std::optional<std::string>("gio open") : std::nullopt);
            });
    }

    void endInTime()
    {
        end(asked ? std::optional(std::string(asked) + ", which has not answered yet")
                  : std::nullopt);
    }

    void end(const std::optional<std::string>& with)
    {
        question.reset();
        started.reset();
        if (const auto handler = std::exchange(shown, nullptr))
            handler(with);
    }

    /// Starts a command; nobody else has the folder then. The previous command, which may be the
    /// caller, is destroyed once it has returned.
    void run(const std::vector<std::string>& arguments, Command::Output output,
             Command::Finished finished)
    {
        asked = nullptr;
        if (command)
            QTimer::singleShot(0, this, [old = std::shared_ptr(std::move(command))] {});
        command = std::make_unique<Command>(arguments, output, inheritance, 2 * means.limit,
                                            std::move(finished));
    }

    static constexpr const char* kWithHandler = "the default program for folders";

    const FileBrowserMeans& means;
    const Inheritance inheritance;
    const std::string url;
    const std::string token;
    FolderShown shown;
    QTimer limit;
    const char* asked = nullptr; ///< who has the folder, but has not shown yet whether it opens it
    bool hasHandlerFailed = false;
    FileDescriptor outcome; ///< of the handler that was started
    std::unique_ptr<QSocketNotifier> started;
    std::unique_ptr<QDBusPendingCallWatcher> question;
    std::unique_ptr<Command> command;
};

} // namespace

std::unique_ptr<QObject> showFolder(const FileBrowserMeans& means, const std::string& url,
                                    const std::string& token, FolderShown shown)
{
    return std::make_unique<FolderShowing>(means, url, token, std::move(shown));
}

} // namespace quillbox
