// The load generator with which relays are measured: a server for all roles, and a client for each
// measurement. Every client prints its result as one line of JSON.

#include "bench/flood.h"
#include "bench/held_sessions.h"
#include "bench/order.h"
#include "bench/round_trips.h"
#include "bench/server.h"
#include "bench/short_sessions.h"
#include "bench/tcp.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <sys/prctl.h>

namespace quillbox::bench {
namespace {

constexpr const char* kUsage =
    "usage: quillbox-bench-load serve --port=P\n"
    "       quillbox-bench-load upload|download --to=ADDRESS --port=P[,P...] --streams=N "
    "--seconds=S --pace=BYTES/S\n"
    "       quillbox-bench-load round-trips --to=ADDRESS --port=P --streams=N --seconds=S "
    "--size=BYTES\n"
    "       quillbox-bench-load sessions --to=ADDRESS --port=P --at-once=N --seconds=S\n"
    "       quillbox-bench-load hold --to=ADDRESS --port=P --sessions=N\n";

/// The arguments of the form --name=value.
class Arguments {
public:
    explicit Arguments(std::span<const char* const> all)
    {
        for (const std::string argument : all) {
            const auto equals = argument.find('=');
            if (!argument.starts_with("--") || equals == std::string::npos)
                throw std::invalid_argument("not an option: " + argument);
            values_[argument.substr(2, equals - 2)] = argument.substr(equals + 1);
        }
    }

    const std::string& text(const std::string& name) const
    {
        const auto found = values_.find(name);
        if (found == values_.end())
            throw std::invalid_argument("--" + name + " is missing");
        return found->second;
    }

    double number(const std::string& name) const { return numberIn(text(name)); }

    std::size_t count(const std::string& name) const
    {
        return static_cast<std::size_t>(number(name));
    }

    Target target() const { return {.address = text("to"), .port = port()}; }

    std::uint16_t port() const { return static_cast<std::uint16_t>(number("port")); }

    /// The ports are separated by commas.
    std::vector<Target> targets() const
    {
        std::vector<Target> found;
        std::istringstream ports(text("port"));
        for (std::string port; std::getline(ports, port, ',');)
            found.push_back({text("to"), static_cast<std::uint16_t>(numberIn(port))});
        return found;
    }

    Clock::duration time() const
    {
        return std::chrono::duration_cast<Clock::duration>(
            std::chrono::duration<double>(number("seconds")));
    }

    std::uint32_t requestSize() const
    {
        const auto size = count("size");
        if (size == 0 || size > kMaximumRequest)
            throw std::invalid_argument("--size is out of bounds");
        return static_cast<std::uint32_t>(size);
    }

private:
    static double numberIn(const std::string& digits)
    {
        std::size_t used = 0;
        const double value = std::stod(digits, &used);
        if (used != digits.size() || !std::isfinite(value) || value < 0)
            throw std::invalid_argument("not a number: " + digits);
        return value;
    }

    std::map<std::string, std::string> values_;
};

/// By default the kernel lets timers be 50 µs late, an eighth of the time between two aggregates of
/// a fast Wi-Fi.
void makeTimersExact()
{
    if (::prctl(PR_SET_TIMERSLACK, 1) != 0)
        throw std::system_error(errno, std::system_category(), "prctl");
}

Flood floodOf(const Arguments& given)
{
    return {.targets = given.targets(),
            .streams = given.count("streams"),
            .time = given.time(),
            .bytesPerSecond = given.count("pace")};
}

void perform(const std::string& what, const Arguments& given)
{
    raiseDescriptorLimit();
    makeTimersExact();
    if (what == "serve")
        serve(given.port());
    else if (what == "upload")
        upload(floodOf(given));
    else if (what == "download")
        download(floodOf(given));
    else if (what == "round-trips")
        measureRoundTrips({.target = given.target(),
                           .streams = given.count("streams"),
                           .size = given.requestSize(),
                           .time = given.time()});
    else if (what == "sessions")
        measureShortSessions(
            {.target = given.target(), .atOnce = given.count("at-once"), .time = given.time()});
    else if (what == "hold")
        holdSessions(given.target(), given.count("sessions"));
    else
        throw std::invalid_argument("unknown command: " + what);
}

} // namespace
} // namespace quillbox::bench

int main(int argumentCount, char** arguments)
{
    const std::span<const char* const> all(arguments, static_cast<std::size_t>(argumentCount));
    try {
        if (all.size() < 2)
            throw std::invalid_argument("a command is missing");
        quillbox::bench::perform(all[1], quillbox::bench::Arguments(all.subspan(2)));
    } catch (const std::invalid_argument& error) {
        std::cerr << "quillbox-bench-load: " << error.what() << '\n' << quillbox::bench::kUsage;
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "quillbox-bench-load: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
