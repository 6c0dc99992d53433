#include "platform/dnssd/engine/automatic_engine_choice.h"

#include <utility>

namespace quillbox::dnssd {

void AutomaticEngineChoice::handle(Source source, Event event, Clock::time_point now)
{
    const bool isUp = std::holds_alternative<EngineUp>(event);
    const bool isDown = std::holds_alternative<EngineDown>(event);

    if (source == Source::Embedded && !isEmbeddedStarted)
        return; // sent before it was stopped
    if (source == Source::Embedded && (isUp || isDown))
        isEmbeddedDown = isDown;
    if (isUp && source == Source::Daemon && isDaemonOnProbation) {
        daemonUp = std::move(event);
        probationEnd = now + times.probation;
        if (isEmbeddedDown)
            useDaemon(now);
    } else if (isUp) {
        comeUp(source, std::move(event), now);
    } else if (isDown && source == Source::Daemon) {
        handleDaemonDown(std::move(event), now);
    } else if (isDown) {
        goDown(std::move(event));
        if (daemonUp)
            useDaemon(now); // better one on probation than none
    } else if (activeSource == source) {
        actions.emit(std::move(event));
    }
}

void AutomaticEngineChoice::comeUp(Source source, Event event, Clock::time_point now)
{
    if (source == Source::Daemon) {
        embeddedStart.reset();
        if (activeSource)
            goDown(EngineDown{make_error_code(DnsSdError::EngineUnavailable)});
        if (std::exchange(isEmbeddedStarted, false))
            actions.stopEmbedded();
    }
    activeSource = source;
    activeSince = now;
    isReportedDown = false;
    actions.emit(std::move(event));
}

void AutomaticEngineChoice::goDown(Event event)
{
    activeSource.reset();
    if (!std::exchange(isReportedDown, true))
        actions.emit(std::move(event));
}

void AutomaticEngineChoice::handleDaemonDown(Event event, Clock::time_point now)
{
    daemonUp.reset();
    if (isEmbeddedStarted)
        return;
    if (activeSource) {
        isDaemonOnProbation = now < activeSince + times.youngAge;
        goDown(std::move(event));
        embeddedStart = isDaemonOnProbation ? now : now + times.restartPatience;
        elapse(now);
    } else if (embeddedStart && !isReportedDown) {
        // The daemon's first event: there is none, so do not wait any longer.
        elapse(*embeddedStart);
    }
}

void AutomaticEngineChoice::useDaemon(Clock::time_point now)
{
    isDaemonOnProbation = false;
    comeUp(Source::Daemon, *std::exchange(daemonUp, std::nullopt), now);
}

std::optional<AutomaticEngineChoice::Clock::time_point> AutomaticEngineChoice::deadline() const
{
    return daemonUp ? probationEnd : embeddedStart;
}

void AutomaticEngineChoice::elapse(Clock::time_point now)
{
    if (daemonUp && probationEnd <= now)
        useDaemon(now);
    else if (embeddedStart && *embeddedStart <= now) {
        embeddedStart.reset();
        isEmbeddedStarted = true;
        isEmbeddedDown = false;
        actions.startEmbedded();
    }
}

} // namespace quillbox::dnssd
