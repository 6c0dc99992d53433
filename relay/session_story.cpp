#include "relay/session_story.h"

#include "platform/text.h"

#include <utility>

namespace quillbox {

namespace {

std::string nameOf(SessionStory::Side side)
{
    return side == SessionStory::Side::Phone ? "the phone" : "the file manager";
}

} // namespace

class SessionStory::WatchedConnection final : public Connection {
public:
    WatchedConnection(std::shared_ptr<SessionStory> ofSession, Side ownSide,
                      std::shared_ptr<Connection> watched)
        : story(std::move(ofSession)), side(ownSide), connection(std::move(watched))
    {
    }

    void setStateUpdateHandler(StateUpdateHandler handler) override
    {
        connection->setStateUpdateHandler(
            [story = story, side = side, handler = std::move(handler)](State state,
                                                                       std::error_code error) {
                story->noteState(side, state, error);
                handler(state, error);
            });
    }

    void start(std::shared_ptr<DispatchQueue> queue) override
    {
        connection->start(std::move(queue));
    }

    void receive(std::size_t minimum, std::size_t maximum, ReceiveCompletion completion) override
    {
        connection->receive(minimum, maximum,
                            [story = story, side = side, completion = std::move(completion)](
                                Content content, bool isComplete, std::error_code error) {
                                story->noteReceived(side, content.size(), isComplete, error);
                                completion(std::move(content), isComplete, error);
                            });
    }

    void send(Content content, SendCompletion completion) override
    {
        connection->send(std::move(content),
                         [story = story, side = side,
                          completion = std::move(completion)](std::error_code error) {
                             if (error)
                                 story->noteCause(side, error);
                             completion(error);
                         });
    }

    void cancel() override { connection->cancel(); }

private:
    const std::shared_ptr<SessionStory> story;
    const Side side;
    const std::shared_ptr<Connection> connection;
};

std::shared_ptr<SessionStory> SessionStory::begin(Log& log, const std::string& finderName)
{
    if (!log.isOn(LogCategory::Connection))
        return nullptr;
    std::shared_ptr<SessionStory> story(new SessionStory(log, finderName));
    story->tell("the file manager has connected");
    return story;
}

SessionStory::SessionStory(Log& sessionLog, const std::string& finderName)
    : log(sessionLog),
      label("session " + std::to_string(sessionLog.numberSession()) + " of "
            + inDoubleQuotes(finderName) + ": "),
      start(sessionLog.now())
{
}

std::shared_ptr<Connection> SessionStory::watch(Side side, std::shared_ptr<Connection> connection)
{
    return std::make_shared<WatchedConnection>(shared_from_this(), side, std::move(connection));
}

void SessionStory::end()
{
    tell("ended after " + durationText(log.now() - start) + ": "
         + (cause.empty() ? "the relay stopped" : cause) + "; " + std::to_string(bytesToPhone)
         + " bytes to the phone, " + std::to_string(bytesFromPhone) + " bytes from the phone");
}

void SessionStory::tell(const std::string& text)
{
    log.tell(LogCategory::Connection, [&] { return label + text; });
}

void SessionStory::noteState(Side side, Connection::State state, std::error_code error)
{
    if (state == Connection::State::Failed)
        noteCause(side, error);
    if (side != Side::Phone)
        return;
    if (state == Connection::State::Preparing)
        tell("connecting to the phone");
    else if (state == Connection::State::Waiting)
        tell("waiting for the phone: " + error.message());
    else if (state == Connection::State::Ready)
        tell("connected to the phone after " + durationText(log.now() - start));
}

void SessionStory::noteReceived(Side side, std::size_t bytes, bool isComplete,
                                std::error_code error)
{
    (side == Side::Phone ? bytesFromPhone : bytesToPhone) += bytes;
    if (error || isComplete)
        noteCause(side, error);
}

/// Keeps only the first cause: the end of one side ends the other.
void SessionStory::noteCause(Side side, std::error_code error)
{
    if (cause.empty())
        cause = error ? "connection to " + nameOf(side) + " failed: " + error.message()
                      : nameOf(side) + " closed the connection";
}

} // namespace quillbox
