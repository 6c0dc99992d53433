#include "relay/relay_session.h"

#include "platform/values/text.h"

#include <utility>

namespace quillbox {

RelaySession::RelaySession(std::shared_ptr<Connection> accepted, std::shared_ptr<Connection> opened,
                           Log& sessionLog, const std::string& finderName)
    : incoming{.connection = std::move(accepted), .name = "the file manager"},
      outgoing{.connection = std::move(opened), .name = "the phone"},
      log(sessionLog),
      beginning(log.now())
{
    if (!log.isOn(LogCategory::Connection))
        return;
    label = "session " + std::to_string(log.numberSession()) + " of " + inDoubleQuotes(finderName)
            + ": ";
    tell([] { return "the file manager has connected"; });
}

template <typename Text> void RelaySession::tell(Text&& text)
{
    if (!label.empty())
        log.tell(LogCategory::Connection, [&] { return label + text(); });
}

void RelaySession::start(const std::shared_ptr<DispatchQueue>& queue)
{
    for (Side* side : {&incoming, &outgoing})
        side->connection->setStateUpdateHandler(
            [weak = weak_from_this(), side](Connection::State state, std::error_code error) {
                if (const auto self = weak.lock())
                    self->takeState(*side, state, error);
            });
    incoming.connection->start(queue);
    outgoing.connection->start(queue);
}

void RelaySession::takeState(const Side& side, Connection::State state, std::error_code error)
{
    using State = Connection::State;
    const bool isPhone = &side == &outgoing;
    if (state == State::Failed) {
        finish(&side, error);
    } else if (state == State::Cancelled) {
        finish();
    } else if (isPhone && state == State::Preparing) {
        tell([] { return "connecting to the phone"; });
    } else if (isPhone && state == State::Waiting) {
        tell([&] { return "waiting for the phone: " + error.message(); });
    } else if (isPhone && state == State::Ready) {
        tell([&] { return "connected to the phone after " + durationText(log.now() - beginning); });
        pump(incoming, outgoing);
        pump(outgoing, incoming);
    }
}

void RelaySession::pump(Side& source, Side& sink)
{
    // The completion owns the connection, but not the session: destroying it ends the loop.
    source.connection->receive(
        1, kMaximumContentSize,
        [weak = weak_from_this(), &source, &sink,
         receiving = source.connection](Content content, bool isComplete, std::error_code error) {
            const auto self = weak.lock();
            if (!self || self->finished)
                return;
            source.received += content.size();
            if (error)
                self->finish(&source, error);
            else if (!content.isEmpty())
                self->forward(source, sink, std::move(content), isComplete);
            else if (isComplete)
                self->finish(&source, {});
            else
                self->pump(source, sink);
        });
}

void RelaySession::forward(Side& source, Side& sink, Content content, bool isComplete)
{
    // Backpressure: the next chunk is read only after this one has been sent, so there is at most
    // one chunk per direction.
    sink.connection->send(std::move(content),
                          [weak = weak_from_this(), &source, &sink, sending = sink.connection,
                           isComplete](std::error_code error) {
                              const auto self = weak.lock();
                              if (!self || self->finished)
                                  return;
                              if (isComplete)
                                  self->finish(&source, {});
                              else if (error)
                                  self->finish(&sink, error);
                              else
                                  self->pump(source, sink);
                          });
}

void RelaySession::finish(const Side* cause, std::error_code error)
{
    if (std::exchange(finished, true))
        return;
    incoming.connection->cancel();
    outgoing.connection->cancel();
    tell([&] {
        std::string text = "ended after " + durationText(log.now() - beginning) + ": ";
        if (cause == nullptr)
            text += "the relay stopped";
        else if (error)
            text += std::string("connection to ") + cause->name + " failed: " + error.message();
        else
            text += std::string(cause->name) + " closed the connection";
        return text + "; " + std::to_string(incoming.received) + " bytes to the phone, "
               + std::to_string(outgoing.received) + " bytes from the phone";
    });
    if (onEnd)
        onEnd();
    onEnd = nullptr;
}

} // namespace quillbox
