#include "platform/dnssd/engine/automatic_engine.h"

#include "platform/dnssd/engine/engine_story.h"
#include "platform/dnssd/engine/engine_thread.h"
#include "platform/dnssd/processes/daemon_engine.h"

#include <algorithm>
#include <array>
#include <utility>
#include <variant>

#include <poll.h>

namespace quillbox::dnssd {

namespace {

using Clock = std::chrono::steady_clock;
using Source = AutomaticEngineChoice::Source;

struct EngineEvent {
    Source source = Source::Daemon;
    Event event;
};
using Item = std::variant<PostedRequest, EngineEvent>;
using ItemMailbox = EngineMailbox<Item>;

/// Runs on the automatic engine's thread; owns both engines and the choice between them.
class AutomaticLoop final {
public:
    AutomaticLoop(ItemMailbox& theMailbox, AutomaticEngineOptions theOptions)
        : mailbox(theMailbox),
          options(std::move(theOptions)),
          choice(this->options.times, {.emit = [this](Event event) { emit(std::move(event)); },
                                       .startEmbedded = [this] { startEmbedded(); },
                                       .stopEmbedded = [this] { stopEmbedded(); }})
    {
    }

    void run()
    {
        daemon = options.makeDaemon();
        choice.begin(Clock::now());
        start(*daemon, Source::Daemon);
        for (;;) {
            wait();
            auto taken = mailbox.take();
            if (taken.isStopping)
                break;
            for (Item& item : taken.items)
                std::visit([this](auto& i) { handle(std::move(i)); }, item);
            choice.elapse(Clock::now());
        }
        // The embedded engine first: if it runs, it is the one that has services to withdraw.
        stopEmbedded();
        daemon->stop();
    }

private:
    void wait()
    {
        int timeout = -1;
        if (const auto deadline = choice.deadline()) {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
            timeout = static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
        }
        pollfd waiting{mailbox.descriptor(), POLLIN, 0};
        ::poll(&waiting, 1, timeout);
    }

    /// The generations of both engines count as one sequence.
    void emit(Event event)
    {
        if (auto* up = std::get_if<EngineUp>(&event)) {
            activeGeneration = up->generation;
            up->generation = ++generation;
        }
        mailbox.emit(std::move(event));
    }

    void handle(PostedRequest posted)
    {
        const auto active = choice.active();
        if (!active || posted.generation != generation)
            return;
        Engine& engine = *active == Source::Daemon ? *daemon : *embedded;
        engine.send(activeGeneration, std::move(posted.request));
    }

    void handle(EngineEvent event)
    {
        if (event.source == Source::Daemon && std::holds_alternative<EngineUp>(event.event))
            report(true);
        else if (event.source == Source::Daemon && std::holds_alternative<EngineDown>(event.event)
                 && embedded)
            report(false);
        choice.handle(event.source, std::move(event.event), Clock::now());
    }

    /// The mailbox outlives the handler: no handler runs after an engine's stop().
    void start(Engine& engine, Source source)
    {
        engine.start([this, source](Event event) {
            mailbox.post(EngineEvent{source, std::move(event)});
        });
    }

    void startEmbedded()
    {
        report(false);
        embedded = options.makeEmbedded();
        start(*embedded, Source::Embedded);
    }

    void stopEmbedded()
    {
        if (!embedded)
            return;
        embedded->stop();
        embedded.reset();
    }

    void report(bool isDaemonUp) const
    {
        if (options.daemonChanged)
            options.daemonChanged(isDaemonUp);
    }

    ItemMailbox& mailbox;
    AutomaticEngineOptions options;
    AutomaticEngineChoice choice;
    std::unique_ptr<Engine> daemon;
    std::unique_ptr<Engine> embedded;
    Generation generation = 0;
    Generation activeGeneration = 0; ///< as the active engine counts
};

class AutomaticEngine final : public Engine {
public:
    explicit AutomaticEngine(AutomaticEngineOptions theOptions) : options(std::move(theOptions)) {}

    void start(EventHandler handler) override
    {
        thread.start(std::move(handler), [settings = options](ItemMailbox& mailbox) {
            AutomaticLoop(mailbox, settings).run();
        });
    }

    void send(Generation generation, Request request) override
    {
        thread.post(PostedRequest{generation, std::move(request)});
    }

    void stop() override { thread.stop(); }

private:
    AutomaticEngineOptions options;
    EngineThread<Item> thread;
};

} // namespace

std::unique_ptr<Engine> makeAutomaticEngine(AutomaticEngineOptions options)
{
    return std::make_unique<AutomaticEngine>(std::move(options));
}

std::unique_ptr<Engine> makeEngine(DnsSdMode mode, Log& log,
                                   std::function<void(bool isDaemonUp)> daemonChanged)
{
    const auto makeDaemon = [&log] { return withStory(makeDaemonEngine(), "avahi-daemon", log); };
    const auto makeEmbedded = [&log] {
        return withStory(makeEmbeddedEngine(), "the embedded engine", log);
    };
    switch (mode) {
    case DnsSdMode::Daemon:
        return makeDaemon();
    case DnsSdMode::Embedded:
        return makeEmbedded();
    case DnsSdMode::Automatic:
        break;
    }
    return makeAutomaticEngine({.makeDaemon = makeDaemon,
                                .makeEmbedded = makeEmbedded,
                                .daemonChanged = std::move(daemonChanged)});
}

} // namespace quillbox::dnssd
