#pragma once

#include <string>
#include <vector>

namespace quillbox::dnssd {

/// Notices when the socket of the system bus appears, so that nobody has to look for it again and
/// again. It watches only between `begin` and `end`. One thread.
class DaemonEngineBusWatch final {
public:
    /// `socketPath` empty: where the system bus is.
    explicit DaemonEngineBusWatch(std::string socketPath = {});
    DaemonEngineBusWatch(const DaemonEngineBusWatch&) = delete;
    DaemonEngineBusWatch& operator=(const DaemonEngineBusWatch&) = delete;
    ~DaemonEngineBusWatch();

    /// Readable when `hasSocketAppeared` has something to say; -1 when the system cannot watch.
    int descriptor() const { return notifier; }

    /// Reads what has changed. True when the socket, or a folder on the way to it, has come.
    bool hasSocketAppeared();

    /// Watches the folders on the way to the socket, as they are now.
    void begin();
    void end();

private:
    std::string socketPath;
    std::vector<int> watches;
    int notifier;
};

} // namespace quillbox::dnssd
