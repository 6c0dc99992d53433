#include "platform/dnssd/engine/automatic_engine.h"

#include "platform/dnssd/engine/engine_process.h"

#include <optional>
#include <utility>
#include <variant>

namespace quillbox::dnssd {

namespace {

class AutomaticEngine final : public Engine {
public:
    AutomaticEngine(std::shared_ptr<DispatchQueue> itsQueue, std::unique_ptr<Engine> daemonEngine,
                    std::unique_ptr<Engine> embeddedEngine, DaemonChangedHandler daemonHandler)
        : queue(std::move(itsQueue)),
          daemon(std::move(daemonEngine)),
          embedded(std::move(embeddedEngine)),
          daemonChanged(std::move(daemonHandler))
    {
    }
    AutomaticEngine(const AutomaticEngine&) = delete;
    AutomaticEngine& operator=(const AutomaticEngine&) = delete;
    ~AutomaticEngine() override { stop(); }

    void start(EventHandler theHandler) override
    {
        handler = std::move(theHandler);
        timer = after(kStartPatience, [this] { startEmbedded(); });
        daemon->start([this](const Event& event) { handleDaemon(event); });
    }

    void send(const Request& request) override
    {
        if (active)
            active->send(request);
    }

    void stop() override
    {
        timer = nullptr;
        youth = nullptr;
        // The embedded engine first: if it runs, it is the one that has services to withdraw.
        embedded->stop();
        daemon->stop();
    }

private:
    /// As long as it exists, `after` calls its closure.
    using Pending = std::shared_ptr<char>;

    void handleDaemon(const Event& event)
    {
        if (std::holds_alternative<EngineUp>(event)) {
            report(true);
            daemonUp = event;
            if (isDaemonOnProbation && !isEmbeddedDown)
                timer = after(kProbation, [this] { useDaemon(); });
            else
                useDaemon();
        } else if (std::holds_alternative<EngineDown>(event)) {
            handleDaemonDown(event);
        } else if (active == daemon.get()) {
            handler(event);
        }
    }

    void handleDaemonDown(const Event& event)
    {
        daemonUp.reset();
        if (isEmbeddedStarted) {
            timer = nullptr; // its probation has ended
            report(false);
        } else if (active) {
            isDaemonOnProbation = youth != nullptr;
            if (!isDaemonOnProbation)
                timer = after(kRestartPatience, [this] { startEmbedded(); });
            goDown(event);
            if (isDaemonOnProbation)
                startEmbedded();
        } else if (!isReportedDown) {
            startEmbedded(); // its first event: there is none, so do not wait any longer
        }
    }

    void handleEmbedded(const Event& event)
    {
        if (!isEmbeddedStarted)
            return; // sent before it was stopped
        if (std::holds_alternative<EngineUp>(event)) {
            isEmbeddedDown = false;
            use(*embedded, event);
        } else if (std::holds_alternative<EngineDown>(event)) {
            isEmbeddedDown = true;
            goDown(event);
            if (daemonUp)
                useDaemon(); // better one on probation than none
        } else if (active == embedded.get()) {
            handler(event);
        }
    }

    void startEmbedded()
    {
        timer = nullptr;
        isEmbeddedStarted = true;
        isEmbeddedDown = false;
        report(false);
        embedded->start([this](const Event& event) { handleEmbedded(event); });
    }

    void useDaemon()
    {
        timer = nullptr;
        youth = after(kYoungAge, [this] { youth = nullptr; });
        isDaemonOnProbation = false;
        if (active)
            goDown(EngineDown{make_error_code(DnsSdError::EngineUnavailable)});
        if (std::exchange(isEmbeddedStarted, false))
            embedded->stop();
        use(*daemon, *std::exchange(daemonUp, std::nullopt));
    }

    void use(Engine& engine, const Event& up)
    {
        active = &engine;
        isReportedDown = false;
        handler(up);
    }

    void goDown(const Event& event)
    {
        active = nullptr;
        if (!std::exchange(isReportedDown, true))
            handler(event);
    }

    void report(bool isDaemonUp)
    {
        if (std::exchange(isReportedUp, isDaemonUp) != isDaemonUp && daemonChanged)
            daemonChanged(isDaemonUp);
    }

    Pending after(std::chrono::milliseconds delay, std::function<void()> action)
    {
        auto pending = std::make_shared<char>();
        queue->asyncAfter(delay, [weak = std::weak_ptr(pending), action = std::move(action)] {
            if (!weak.expired())
                action();
        });
        return pending;
    }

    const std::shared_ptr<DispatchQueue> queue;
    const std::unique_ptr<Engine> daemon;
    const std::unique_ptr<Engine> embedded;
    const DaemonChangedHandler daemonChanged;
    EventHandler handler;
    Engine* active = nullptr; ///< receives the requests; null while no engine is up
    Pending timer;            ///< for the embedded engine's start, or the end of the probation
    Pending youth;            ///< of a daemon that was taken into use
    bool isDaemonOnProbation = false;
    std::optional<Event> daemonUp; ///< while it is up on probation
    bool isEmbeddedStarted = false;
    bool isEmbeddedDown = false; ///< it has been started, and has said that it is not up
    bool isReportedDown = false;
    bool isReportedUp = true; ///< the daemon, by itself
};

} // namespace

std::unique_ptr<Engine> makeAutomaticEngine(std::shared_ptr<DispatchQueue> queue,
                                            std::unique_ptr<Engine> daemon,
                                            std::unique_ptr<Engine> embedded,
                                            DaemonChangedHandler daemonChanged)
{
    return std::make_unique<AutomaticEngine>(std::move(queue), std::move(daemon),
                                             std::move(embedded), std::move(daemonChanged));
}

std::unique_ptr<Engine> makeEngine(DnsSdChoice choice, const std::shared_ptr<DispatchQueue>& queue,
                                   Log& log, DaemonChangedHandler daemonChanged)
{
    const auto makeDaemon = [&] {
        return makeEngineProcess(
            queue, log, {.program = engineProgram(kDaemonProgram), .name = "avahi-daemon"});
    };
    const auto makeEmbedded = [&] {
        return makeEngineProcess(
            queue, log,
            {.program = engineProgram(kResponderProgram), .name = "the embedded engine"});
    };
    switch (choice) {
    case DnsSdChoice::Daemon:
        return makeDaemon();
    case DnsSdChoice::Embedded:
        return makeEmbedded();
    case DnsSdChoice::Automatic:
        break;
    }
    return makeAutomaticEngine(queue, makeDaemon(), makeEmbedded(), std::move(daemonChanged));
}

} // namespace quillbox::dnssd
