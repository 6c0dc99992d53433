#include "platform/dnssd/automatic_engine_choice.h"

#include <utility>

namespace quillbox::dnssd {

void AutomaticEngineChoice::handle(Source source, Event event, Clock::time_point now)
{
    const bool isUp = std::holds_alternative<EngineUp>(event);
    const bool isDown = std::holds_alternative<EngineDown>(event);

    if (source == Source::Embedded && !isEmbeddedStarted)
        return; // sent before it was stopped
    if (isUp) {
        comeUp(source, std::move(event));
    } else if (isDown && source == Source::Daemon) {
        handleDaemonDown(std::move(event), now);
    } else if (isDown) {
        goDown(std::move(event));
    } else if (activeSource == source) {
        actions.emit(std::move(event));
    }
}

void AutomaticEngineChoice::comeUp(Source source, Event event)
{
    if (source == Source::Daemon) {
        embeddedStart.reset();
        if (activeSource)
            goDown(EngineDown{make_error_code(DnsSdError::EngineUnavailable)});
        if (std::exchange(isEmbeddedStarted, false))
            actions.stopEmbedded();
    }
    activeSource = source;
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
    if (isEmbeddedStarted)
        return;
    if (activeSource) {
        goDown(std::move(event));
        embeddedStart = now + times.restartPatience;
    } else if (embeddedStart && !isReportedDown) {
        // The daemon's first event: there is none, so do not wait any longer.
        elapse(*embeddedStart);
    }
}

void AutomaticEngineChoice::elapse(Clock::time_point now)
{
    if (!embeddedStart || *embeddedStart > now)
        return;
    embeddedStart.reset();
    isEmbeddedStarted = true;
    actions.startEmbedded();
}

} // namespace quillbox::dnssd
