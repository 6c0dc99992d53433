#pragma once

#include <string>
#include <vector>

namespace quillbox::dnssd {

/// Detects that the socket of the system bus appears, so that nobody has to poll for it. Watches
/// only between `begin` and `end`. Single-threaded.
class BusWatch final {
public:
    /// An empty `socketPath` means the socket of the system bus.
    explicit BusWatch(std::string socketPath = {});
    BusWatch(const BusWatch&) = delete;
    BusWatch& operator=(const BusWatch&) = delete;
    ~BusWatch();

    /// Readable when `hasSocketAppeared` has events to read; -1 when inotify is unavailable.
    int descriptor() const { return notifier; }

    /// Reads the pending events. True when the socket or its folder has appeared.
    bool hasSocketAppeared();

    /// Watches the socket's folder and the parent of that, as far as they exist now.
    void begin();
    void end();

private:
    std::string socketPath;
    std::vector<int> watches;
    int notifier;
};

} // namespace quillbox::dnssd
