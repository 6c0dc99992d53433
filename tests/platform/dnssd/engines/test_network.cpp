#include "tests/platform/dnssd/engines/test_network.h"

#include "tests/platform/dnssd/engines/engine_on_pool.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <thread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <unistd.h>

namespace quillbox::dnssd {

namespace {

constexpr const char* kMarker = "QUILLBOX_PRIVATE_NETWORK";
constexpr const char* kTestFolder = "/run/quillbox-test";

constexpr const char* kBusConfiguration = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=/run/dbus/system_bus_socket</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

constexpr const char* kDaemonConfiguration = R"([server]
host-name=testhost
use-ipv4=yes
use-ipv6=yes
[wide-area]
enable-wide-area=no
[publish]
publish-workstation=no
publish-hinfo=no
[rlimits]
)";

void write(const std::string& path, const char* text)
{
    std::ofstream(path) << text;
}

} // namespace

void enterPrivateNetwork(int argc, char** argv)
{
    if (std::getenv(kMarker) != nullptr)
        return;
    for (int index = 1; index < argc; ++index) {
        if (std::strcmp(argv[index], "--gtest_list_tests") == 0)
            return;
    }
    const char* flags = ::geteuid() == 0 ? "-nmu" : "-Urnmu";
    if (!runs({"unshare", flags, "true"}))
        return; // tests that need it are skipped
    ::setenv(kMarker, "1", 1);
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    std::vector<const char*> command{"unshare", flags, self.c_str()};
    command.insert(command.end(), argv + 1, argv + argc);
    command.push_back(nullptr);
    ::execvp("unshare", const_cast<char* const*>(command.data()));
    ::unsetenv(kMarker);
}

bool isInPrivateNetwork()
{
    return std::getenv(kMarker) != nullptr;
}

bool isDaemonPossible()
{
    // A user namespace of an ordinary user maps only that user.
    std::ifstream users("/proc/self/uid_map");
    unsigned long first = 0;
    unsigned long outside = 0;
    unsigned long count = 0;
    users >> first >> outside >> count;
    return isInPrivateNetwork() && count > 1;
}

TestNetwork::TestNetwork()
{
    if (!isInPrivateNetwork())
        return;
    otherHost = std::make_unique<TestProcess>(std::vector<std::string>{
        "unshare", "-nu", "sh", "-c", "hostname there && echo ready; exec cat"});
    if (!otherHost->waitForLine("ready", std::chrono::seconds(5)))
        return;
    const std::string other = std::to_string(otherHost->id());
    const std::string here = std::string(kAddressHere) + "/24";
    const std::string away = std::string(kAddressThere) + "/24";
    // "nodad" disables duplicate address detection, so that the addresses are usable immediately.
    ready = runs({"hostname", "here"}) && runs({"mount", "-t", "tmpfs", "tmpfs", "/run"})
            && runs({"mkdir", "-p", "/run/dbus"}) && runs({"mkdir", "-p", kTestFolder})
            && runs({"ip", "link", "set", "lo", "up"})
            && runs({"ip", "link", "set", "lo", "multicast", "on"})
            && runs({"ip", "link", "add", "here0", "type", "veth", "peer", "name", "there0",
                     "netns", other})
            && runs({"ip", "link", "set", "here0", "addrgenmode", "none"})
            && runs(there({"ip", "link", "set", "there0", "addrgenmode", "none"}))
            && runs({"ip", "addr", "add", here, "dev", "here0"})
            && runs({"ip", "addr", "add", "fe80::77:1/64", "dev", "here0", "nodad"})
            && runs({"ip", "link", "set", "here0", "up"})
            && runs(there({"ip", "link", "set", "lo", "up"}))
            && runs(there({"ip", "addr", "add", away, "dev", "there0"}))
            && runs(there({"ip", "addr", "add", "fe80::77:2/64", "dev", "there0", "nodad"}))
            && runs(there({"ip", "link", "set", "there0", "up"}));
}

TestNetwork::~TestNetwork()
{
    // The kernel would remove it only some time after the other host's namespace.
    if (otherHost)
        runs({"ip", "link", "del", "here0"});
}

int TestNetwork::interfaceHere() const
{
    return static_cast<int>(::if_nametoindex("here0"));
}

int TestNetwork::interfaceThere() const
{
    TestProcess index(there({"sh", "-c", "ip -o link show there0 | cut -d: -f1"}));
    const auto line = index.readLine(std::chrono::seconds(5));
    return line ? std::atoi(line->c_str()) : 0;
}

std::vector<std::string> TestNetwork::there(std::vector<std::string> command) const
{
    std::vector<std::string> result{"nsenter", "-n", "-u", "-t", std::to_string(otherHost->id())};
    result.insert(result.end(), command.begin(), command.end());
    return result;
}

void TestNetwork::doThere(const std::function<void()>& work) const
{
    const std::string folder = "/proc/" + std::to_string(otherHost->id()) + "/ns/";
    // setns() affects only the calling thread, and the threads and processes that it starts.
    std::thread([&] {
        for (const char* name : {"net", "uts"}) {
            const int descriptor = ::open((folder + name).c_str(), O_RDONLY | O_CLOEXEC);
            if (::setns(descriptor, 0) != 0)
                throw std::runtime_error("setns");
            ::close(descriptor);
        }
        work();
    }).join();
}

bool TestNetwork::setLink(bool up) const
{
    return runs({"ip", "link", "set", "here0", up ? "up" : "down"})
           && (!up || runs({"ip", "addr", "replace", "fe80::77:1/64", "dev", "here0", "nodad"}));
}

TestBus::TestBus()
{
    const std::string configuration = std::string(kTestFolder) + "/bus.conf";
    write(configuration, kBusConfiguration);
    std::filesystem::create_directories("/run/dbus");
    std::filesystem::remove("/run/dbus/system_bus_socket");
    process = std::make_unique<TestProcess>(std::vector<std::string>{
        "sh", "-c",
        "exec dbus-daemon --config-file=\"$0\" --nofork --nopidfile --print-address 2>/dev/null",
        configuration});
    ready = process->waitForLine("unix:", std::chrono::seconds(5));
}

TestBus::~TestBus() = default;

TestDaemon::TestDaemon()
{
    const std::string configuration = std::string(kTestFolder) + "/avahi.conf";
    write(configuration, kDaemonConfiguration);
    std::filesystem::remove_all("/run/avahi-daemon"); // a killed daemon leaves its PID file
    process = std::make_unique<TestProcess>(std::vector<std::string>{
        "sh", "-c",
        "exec avahi-daemon --no-drop-root --no-rlimits --no-chroot -f \"$0\" 2>/dev/null",
        configuration});
}

namespace {

constexpr const char* kPeerOption = "--advertise";

std::vector<std::string> peerCommand(const std::string& name, const std::string& hostName,
                                     int interfaceIndex, const char* address)
{
    return {std::filesystem::read_symlink("/proc/self/exe"),
            kPeerOption,
            name,
            hostName,
            std::to_string(interfaceIndex),
            address};
}

} // namespace

bool isPeer(int argc, char** argv)
{
    return argc == 6 && std::strcmp(argv[1], kPeerOption) == 0;
}

int runPeer(int /*argc*/, char** argv)
{
    RegisterRequest request{.id = 1,
                            .name = argv[2],
                            .type = "_smb._tcp",
                            .port = 445,
                            .hostName = argv[3],
                            .addresses = {{std::atoi(argv[4]), {}}}};
    ::inet_pton(AF_INET, argv[5], request.addresses.front().address.bytes.data());
    const auto engine = makeEmbeddedEngine();
    engine->start([&](const Event& event) {
        if (std::holds_alternative<EngineUp>(event))
            engine->send(request);
        else if (std::holds_alternative<Registered>(event))
            std::cout << "registered" << std::endl;
    });
    std::string line;
    std::getline(std::cin, line);
    engine->stop();
    return EXIT_SUCCESS;
}

TestPeer::TestPeer(const TestNetwork& network, const std::string& name, const std::string& hostName)
    : process(std::make_unique<TestProcess>(network.there(
        peerCommand(name, hostName, network.interfaceThere(), TestNetwork::kAddressThere))))
{
}

TestPeer::TestPeer(Where /*where*/, const TestNetwork& network, const std::string& name,
                   const std::string& hostName)
    : process(std::make_unique<TestProcess>(
        peerCommand(name, hostName, network.interfaceHere(), TestNetwork::kAddressHere)))
{
}

TestZeroconf::TestZeroconf(const TestNetwork& network, std::vector<std::string> arguments)
    : process([&] {
          std::vector<std::string> command{"/usr/bin/python3", ZEROCONF_PEER,
                                           TestNetwork::kAddressThere};
          command.insert(command.end(), arguments.begin(), arguments.end());
          return network.there(std::move(command));
      }())
{
}

} // namespace quillbox::dnssd
