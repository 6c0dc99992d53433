// A program with a status item, connected as in the helper. Prints a line when a status host
// becomes available or unavailable, at a click, and when the menu opens. The command "tooltip TEXT"
// sets the tool tip. The only argument is how long to wait for a panel, in milliseconds.

#include "platform/desktop/presence/status_host_watch.h"
#include "ui/look/icons.h"
#include "ui/status_bar_item.h"

#include <QApplication>
#include <QSocketNotifier>
#include <chrono>
#include <cstdio>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <utility>

#include <unistd.h>

namespace {

void print(const char* line)
{
    std::puts(line);
    std::fflush(stdout);
}

class TalkingHost final : public quillbox::StatusHost {
public:
    explicit TalkingHost(std::unique_ptr<quillbox::StatusHost> realHost) : host(std::move(realHost))
    {
        tell();
    }

    bool isAvailable() const override { return host->isAvailable(); }

    void setChangedHandler(std::function<void()> handler) override
    {
        if (!handler) {
            host->setChangedHandler(nullptr);
            return;
        }
        host->setChangedHandler([this, handler = std::move(handler)] {
            handler();
            tell();
        });
    }

private:
    void tell() const { print(isAvailable() ? "available" : "unavailable"); }

    const std::unique_ptr<quillbox::StatusHost> host;
};

} // namespace

int main(int argumentCount, char** arguments)
{
    const QApplication application(argumentCount, arguments);
    const auto patience = QApplication::arguments().value(1, QStringLiteral("10000")).toInt();
    TalkingHost host(quillbox::makeStatusHostWatch(std::chrono::milliseconds(patience)));
    quillbox::StatusBarItem item(host, quillbox::Icons::status());
    item.menu().addAction(QStringLiteral("Quillbox Helper"))->setEnabled(false);
    item.menu().addSeparator();
    item.menu().addAction(QStringLiteral("Show Quillbox Helper"));
    item.setToolTip(QStringLiteral("Quillbox Helper — Finder service off"));
    item.clicked = [&item] {
        print("click");
        item.openMenu();
    };
    QObject::connect(&item.menu(), &QMenu::aboutToShow, &item.menu(), [] { print("menu"); });
    QSocketNotifier commands(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&commands, &QSocketNotifier::activated, &commands, [&item] {
        std::string command;
        if (!std::getline(std::cin, command)) {
            QApplication::quit();
            return;
        }
        if (command.starts_with("tooltip "))
            item.setToolTip(QString::fromStdString(command.substr(8)));
    });
    return QApplication::exec();
}
