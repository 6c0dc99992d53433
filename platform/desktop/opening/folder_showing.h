#pragma once

#include "platform/desktop/process/process.h"
#include "platform/log.h"

#include <QDBusConnection>
#include <QObject>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quillbox {

/// What a folder is shown with. All of it must outlive the showing.
struct FileBrowserMeans {
    QDBusConnection bus;
    Inheritance inheritance;
    Log& log;
    std::chrono::milliseconds limit{15'000}; ///< for handing over one folder
    /// Programs that cannot start, for example for lack of a module, take less time to say so.
    std::chrono::milliseconds moment{1000};
};

/// Called once, from the event loop, within the limit: with what opened the folder, for the log;
/// nullopt if nothing did. It may destroy what showFolder() returned.
using FolderShown = std::function<void(const std::optional<std::string>& with)>;

/// Shows the folder at `url` in a file manager, which comes to the front with the activation token
/// `token`. Destroying the result cancels what has not been handed over.
///
/// Tries in turn, until one succeeds: the user's default program for folders; the file manager on
/// the session bus (`org.freedesktop.FileManager1`); mounting the folder and opening it. In this
/// order, because Thunar answers on the bus with success and opens nothing if the folder is not
/// mounted, while all file managers open it if they are started through their desktop entry.
///
/// A program that is started counts as having opened the folder unless it fails within a moment.
/// Once a program has been asked over the bus, the folder counts as handed over until the program
/// refuses: some answer only after the user has logged in to the server.
std::unique_ptr<QObject> showFolder(const FileBrowserMeans& means, const std::string& url,
                                    const std::string& token, FolderShown shown);

} // namespace quillbox
