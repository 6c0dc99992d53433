#include "relay/relay_session.h"

#include <utility>

namespace quillbox {

RelaySession::RelaySession(std::shared_ptr<Connection> accepted, std::shared_ptr<Connection> opened)
    : incoming(std::move(accepted)), outgoing(std::move(opened))
{
}

void RelaySession::start(const std::shared_ptr<DispatchQueue>& queue)
{
    incoming->setStateUpdateHandler(
        [weak = weak_from_this()](Connection::State state, std::error_code) {
            const auto self = weak.lock();
            if (!self)
                return;
            if (state == Connection::State::Failed || state == Connection::State::Cancelled)
                self->finish();
        });
    outgoing->setStateUpdateHandler([weak = weak_from_this()](Connection::State state,
                                                              std::error_code) {
        const auto self = weak.lock();
        if (!self)
            return;
        if (state == Connection::State::Ready) {
            self->pump(self->incoming, self->outgoing);
            self->pump(self->outgoing, self->incoming);
        } else if (state == Connection::State::Failed || state == Connection::State::Cancelled) {
            self->finish();
        }
    });
    incoming->start(queue);
    outgoing->start(queue);
}

void RelaySession::pump(const std::shared_ptr<Connection>& source,
                        const std::shared_ptr<Connection>& sink)
{
    // The completion owns the connections, but not the session: destroying it ends the loop.
    source->receive(1, kMaximumContentSize,
                    [weak = weak_from_this(), source, sink](Content content, bool isComplete,
                                                            std::error_code error) {
                        const auto self = weak.lock();
                        if (!self || self->finished)
                            return;
                        if (error)
                            self->finish();
                        else if (!content.isEmpty())
                            self->forward(source, sink, std::move(content), isComplete);
                        else if (isComplete)
                            self->finish();
                        else
                            self->pump(source, sink);
                    });
}

void RelaySession::forward(const std::shared_ptr<Connection>& source,
                           const std::shared_ptr<Connection>& sink, Content content,
                           bool isComplete)
{
    // Backpressure: the next chunk is read only after this one has been sent, so there is at most
    // one chunk per direction.
    sink->send(std::move(content),
               [weak = weak_from_this(), source, sink, isComplete](std::error_code error) {
                   const auto self = weak.lock();
                   if (!self || self->finished)
                       return;
                   if (error || isComplete)
                       self->finish();
                   else
                       self->pump(source, sink);
               });
}

void RelaySession::finish()
{
    if (finished)
        return;
    finished = true;
    incoming->cancel();
    outgoing->cancel();
    if (onEnd)
        onEnd();
    onEnd = nullptr;
}

} // namespace quillbox
