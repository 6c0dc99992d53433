#pragma once

#include "tests/platform/dnssd/engines/test_process.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillbox::dnssd {

/// Starts this executable again in a network and a mount namespace of its own, if it can. To be
/// called first in `main`.
void enterPrivateNetwork(int argc, char** argv);

/// Whether the executable runs in namespaces of its own; only there may a test use the network.
bool isInPrivateNetwork();

/// Whether avahi-daemon can run there too: it hands files to a user of its own, which takes root.
bool isDaemonPossible();

/// Two hosts on one link: "here" is where the tests run, "there" is another network namespace. Made
/// once for the process.
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

    /// The command as run on the other host.
    std::vector<std::string> there(std::vector<std::string> command) const;

    /// Runs `work` on a thread that is on the other host; threads and processes that it starts are
    /// there too.
    void doThere(const std::function<void()>& work) const;

    /// The interface here goes down, or comes up.
    bool setLink(bool up) const;

private:
    std::unique_ptr<TestProcess> otherHost;
    bool ready = false;
};

/// The system bus here.
class TestBus final {
public:
    /// Returns when clients can connect.
    TestBus();

    bool isReady() const { return ready; }
    /// It dies without a word.
    ~TestBus();

private:
    std::unique_ptr<TestProcess> process;
    bool ready = false;
};

/// avahi-daemon here, on the system bus.
class TestDaemon final {
public:
    TestDaemon();

    void signal(int number) const { process->signal(number); }

private:
    std::unique_ptr<TestProcess> process;
};

/// What this executable does with the arguments that `TestPeer` gives it: advertises a service with
/// an engine process of its own, until standard input ends. Returns the exit status.
int runPeer(int argc, char** argv);
bool isPeer(int argc, char** argv);

/// Another process of this executable that advertises a service as an SMB server.
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

/// An independent implementation of DNS-SD on the other host.
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
    /// Withdraws what it published, with goodbyes, and ends.
    void finish()
    {
        process.closeInput();
        process.wait(std::chrono::seconds(5));
    }

private:
    TestProcess process;
};

} // namespace quillbox::dnssd
