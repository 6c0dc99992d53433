#pragma once

#include "tests/platform/dnssd/engines/test_process.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillbox::dnssd {

/// Executes this program again in new network, mount and UTS namespaces (for ordinary users, in a
/// new user namespace, too) if that is permitted. To be called first in `main`.
void enterPrivateNetwork(int argc, char** argv);

/// Whether this program runs in its own namespaces. Tests may use the network only there.
bool isInPrivateNetwork();

/// Whether avahi-daemon can run there, too: it changes the owner of files to its own user, which
/// requires root.
bool isDaemonPossible();

/// Two hosts on one link: "here" is where the tests run, "there" is another network namespace. Only
/// one may exist at a time.
class TestNetwork final {
public:
    static constexpr const char* kAddressHere = "192.168.77.1";
    static constexpr const char* kAddressThere = "192.168.77.2";

    TestNetwork();
    TestNetwork(const TestNetwork&) = delete;
    TestNetwork& operator=(const TestNetwork&) = delete;
    ~TestNetwork();

    bool isReady() const { return ready; }
    int interfaceHere() const;
    int interfaceThere() const;

    /// The command prefixed with nsenter(1), so that it runs on the other host.
    std::vector<std::string> there(std::vector<std::string> command) const;

    /// Runs `work` on a thread that is on the other host; threads and processes that it starts are
    /// there, too.
    void doThere(const std::function<void()>& work) const;

    /// Sets the interface of this host up or down.
    bool setLink(bool up) const;

private:
    std::unique_ptr<TestProcess> otherHost;
    bool ready = false;
};

/// The D-Bus system bus of this host.
class TestBus final {
public:
    /// Returns when clients can connect, or after 5 s.
    TestBus();

    bool isReady() const { return ready; }
    /// Kills the bus.
    ~TestBus();

private:
    std::unique_ptr<TestProcess> process;
    bool ready = false;
};

/// avahi-daemon on this host, connected to the system bus. The destructor kills it.
class TestDaemon final {
public:
    TestDaemon();

    void signal(int number) const { process->signal(number); }

private:
    std::unique_ptr<TestProcess> process;
};

/// Runs this program with the arguments of a `TestPeer`: advertises a service with its own engine
/// process until a line or the end of standard input. Returns the exit status.
int runPeer(int argc, char** argv);
bool isPeer(int argc, char** argv);

/// Another process of this program, which advertises an SMB service.
class TestPeer final {
public:
    /// On the other host.
    TestPeer(const TestNetwork& network, const std::string& name, const std::string& hostName);
    enum class Where { Here };
    TestPeer(Where where, const TestNetwork& network, const std::string& name,
             const std::string& hostName);

    /// Waits until it is registered.
    bool isReady() { return process->waitForLine("registered", std::chrono::seconds(8)); }
    void signal(int number) const { process->signal(number); }
    pid_t id() const { return process->id(); }

private:
    std::unique_ptr<TestProcess> process;
};

/// An independent implementation of DNS-SD (python3-zeroconf) on the other host.
class TestZeroconf final {
public:
    TestZeroconf(const TestNetwork& network, std::vector<std::string> arguments);

    bool waitForLine(const std::string& text,
                     std::chrono::milliseconds limit = std::chrono::seconds(8))
    {
        return process.waitForLine(text, limit);
    }
    std::optional<std::string> readLine(std::chrono::milliseconds limit)
    {
        return process.readLine(limit);
    }
    /// Withdraws the published service with goodbye packets, and exits.
    void finish()
    {
        process.closeInput();
        process.wait(std::chrono::seconds(5));
    }

private:
    TestProcess process;
};

} // namespace quillbox::dnssd
