#include "platform/dnssd/engine/automatic_engine.h"

#include "platform/dnssd/engine/automatic_engine_choice.h"
#include "platform/dnssd/engine/engine_process.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <variant>

namespace quillbox::dnssd {

namespace {

using Clock = std::chrono::steady_clock;
using Source = AutomaticEngineChoice::Source;

/// The daemon's process may wait for the daemon, which a flood of names keeps busy for seconds.
/// libdbus gives up after 25 s.
constexpr std::chrono::seconds kPatienceWithDaemon(30);

class AutomaticEngine final : public Engine {
public:
    AutomaticEngine(std::shared_ptr<DispatchQueue> itsQueue, std::unique_ptr<Engine> daemonEngine,
                    std::unique_ptr<Engine> embeddedEngine, DaemonChangedHandler daemonHandler,
                    AutomaticEngineTimes times)
        : queue(std::move(itsQueue)),
          daemon(std::move(daemonEngine)),
          embedded(std::move(embeddedEngine)),
          daemonChanged(std::move(daemonHandler)),
          choice(times, {.emit = [this](const Event& event) { handler(event); },
                         .startEmbedded = [this] { startEmbedded(); },
                         .stopEmbedded = [this] { embedded->stop(); }})
    {
    }
    AutomaticEngine(const AutomaticEngine&) = delete;
    AutomaticEngine& operator=(const AutomaticEngine&) = delete;
    ~AutomaticEngine() override { stop(); }

    void start(EventHandler theHandler) override
    {
        handler = std::move(theHandler);
        alive = std::make_shared<char>();
        choice.begin(Clock::now());
        daemon->start([this](const Event& event) { handleDaemon(event); });
        schedule();
    }

    void send(const Request& request) override
    {
        if (const auto active = choice.active())
            (*active == Source::Daemon ? daemon : embedded)->send(request);
    }

    void stop() override
    {
        alive = nullptr;
        // The embedded engine first: if it runs, it is the one that has services to withdraw.
        embedded->stop();
        daemon->stop();
    }

private:
    void handleDaemon(const Event& event)
    {
        if (std::holds_alternative<EngineUp>(event))
            report(true);
        else if (std::holds_alternative<EngineDown>(event) && choice.usesEmbedded())
            report(false);
        choice.handle(Source::Daemon, event, Clock::now());
        schedule();
    }

    void startEmbedded()
    {
        report(false);
        embedded->start([this](const Event& event) {
            choice.handle(Source::Embedded, event, Clock::now());
            schedule();
        });
    }

    void report(bool isDaemonUp) const
    {
        if (daemonChanged)
            daemonChanged(isDaemonUp);
    }

    /// Calls the rule when it wants to be called.
    void schedule()
    {
        const auto deadline = choice.deadline();
        if (!deadline || deadline == scheduled)
            return;
        scheduled = deadline;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
        queue->asyncAfter(std::max(left, std::chrono::milliseconds(0)),
                          [this, weak = std::weak_ptr(alive), due = *deadline] {
                              if (weak.expired())
                                  return;
                              choice.elapse(std::max(due, Clock::now()));
                              schedule();
                          });
    }

    const std::shared_ptr<DispatchQueue> queue;
    const std::unique_ptr<Engine> daemon;
    const std::unique_ptr<Engine> embedded;
    const DaemonChangedHandler daemonChanged;
    EventHandler handler;
    AutomaticEngineChoice choice;
    std::optional<Clock::time_point> scheduled;
    std::shared_ptr<char> alive; ///< null while it is not started
};

} // namespace

std::unique_ptr<Engine> makeAutomaticEngine(std::shared_ptr<DispatchQueue> queue,
                                            std::unique_ptr<Engine> daemon,
                                            std::unique_ptr<Engine> embedded,
                                            DaemonChangedHandler daemonChanged,
                                            AutomaticEngineTimes times)
{
    return std::make_unique<AutomaticEngine>(std::move(queue), std::move(daemon),
                                             std::move(embedded), std::move(daemonChanged), times);
}

std::unique_ptr<Engine> makeEngine(DnsSdMode mode, const std::shared_ptr<DispatchQueue>& queue,
                                   Log& log, DaemonChangedHandler daemonChanged)
{
    const auto makeDaemon = [&] {
        return makeEngineProcess(queue, log,
                                 {.program = engineProgram(kDaemonProgram),
                                  .name = "avahi-daemon",
                                  .startPatience = kPatienceWithDaemon,
                                  .patience = kPatienceWithDaemon});
    };
    const auto makeEmbedded = [&] {
        return makeEngineProcess(
            queue, log,
            {.program = engineProgram(kResponderProgram), .name = "the embedded engine"});
    };
    switch (mode) {
    case DnsSdMode::Daemon:
        return makeDaemon();
    case DnsSdMode::Embedded:
        return makeEmbedded();
    case DnsSdMode::Automatic:
        break;
    }
    return makeAutomaticEngine(queue, makeDaemon(), makeEmbedded(), std::move(daemonChanged));
}

} // namespace quillbox::dnssd
