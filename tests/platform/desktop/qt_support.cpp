#include "tests/platform/desktop/qt_support.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>
#include <array>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

namespace quillbox {

namespace {

constexpr int kLongestWait = 20'000; // milliseconds

} // namespace

bool runUntil(const std::function<bool()>& isDone)
{
    QTimer limit;
    limit.setSingleShot(true);
    limit.start(kLongestWait);
    while (!isDone() && limit.isActive())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return isDone();
}

void Environment::set(const char* name, const QByteArray& value)
{
    saved.push_back({name, qgetenv(name), qEnvironmentVariableIsSet(name)});
    if (value.isEmpty())
        qunsetenv(name);
    else
        qputenv(name, value);
}

Environment::~Environment()
{
    for (; !saved.empty(); saved.pop_back()) {
        const auto& entry = saved.back();
        if (entry.wasSet)
            qputenv(entry.name.constData(), entry.value);
        else
            qunsetenv(entry.name.constData());
    }
}

OrdinaryUser::OrdinaryUser(const std::string& folder) : before(::geteuid())
{
    if (before != 0)
        return;
    [[maybe_unused]] const int changed = ::chown(folder.c_str(), kNobody, kNobody);
    [[maybe_unused]] const int became = ::seteuid(kNobody);
}

OrdinaryUser::~OrdinaryUser()
{
    [[maybe_unused]] const int became = ::seteuid(before);
}

NamedPipe::NamedPipe(std::string path) : path_(std::move(path))
{
    [[maybe_unused]] const int made = ::mkfifo(path_.c_str(), 0600);
    openAnew();
}

NamedPipe::~NamedPipe()
{
    ::close(reader_);
}

void NamedPipe::openAnew()
{
    if (reader_ >= 0)
        ::close(reader_);
    reader_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

std::string NamedPipe::readAll()
{
    std::string text;
    std::array<char, 4096> buffer{};
    pollfd waiting{reader_, POLLIN, 0};
    while (::poll(&waiting, 1, kLongestWait) > 0) {
        const auto length = ::read(reader_, buffer.data(), buffer.size());
        if (length <= 0)
            break;
        text.append(buffer.data(), static_cast<std::size_t>(length));
    }
    openAnew();
    return text;
}

} // namespace quillbox
