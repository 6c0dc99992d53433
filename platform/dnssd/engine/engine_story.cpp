#include "platform/dnssd/engine/engine_story.h"

#include "platform/text.h"

#include <map>
#include <mutex>
#include <utility>
#include <variant>

namespace quillbox::dnssd {

namespace {

/// Logs requests, which arrive on one thread, and events, which arrive on another.
class EngineStory final {
public:
    EngineStory(std::string engineName, Log& engineLog)
        : log(engineLog), name(std::move(engineName))
    {
    }

    void noteStart()
    {
        since = log.now();
        tellEngine([] { return std::string("is starting"); });
    }
    void noteStop()
    {
        tellEngine([] { return std::string("is stopping"); });
    }

    void note(const Request& request)
    {
        if (const auto* asked = std::get_if<RegisterRequest>(&request))
            begin(*asked);
        else if (const auto* stopped = std::get_if<StopRequest>(&request))
            withdraw(stopped->id);
    }

    void note(const Event& event)
    {
        if (std::holds_alternative<EngineUp>(event))
            comeUp();
        else if (const auto* down = std::get_if<EngineDown>(&event))
            goDown(down->error);
        else if (const auto* registered = std::get_if<Registered>(&event))
            tellName(registered->id, "is advertised");
        else if (const auto* collision = std::get_if<Collision>(&event))
            tellName(collision->id, collision->of == Collision::Of::Service
                                        ? "has a name conflict"
                                        : "has a host name conflict");
        else if (const auto* failed = std::get_if<Failed>(&event))
            tellName(failed->id, make_error_code(failed->error).message());
    }

private:
    struct Publication {
        std::string name;
        Log::Clock::time_point since;
    };

    template <typename Text> void tellEngine(Text&& text)
    {
        log.tell(LogCategory::Engine, [&] { return name + ' ' + text(); });
    }

    void comeUp()
    {
        const std::lock_guard lock(mutex);
        publications.clear();
        tellEngine([&] { return "is up, after " + durationText(log.now() - since); });
    }

    void goDown(std::error_code error)
    {
        const std::lock_guard lock(mutex);
        publications.clear();
        since = log.now();
        tellEngine([&] { return "is down: " + error.message(); });
    }

    void begin(const RegisterRequest& request)
    {
        const std::lock_guard lock(mutex);
        publications[request.id] = {request.name, log.now()};
        log.tell(LogCategory::Advertising,
                 [&] { return inDoubleQuotes(request.name) + " is being registered"; });
    }

    void withdraw(AskId id)
    {
        const std::lock_guard lock(mutex);
        const auto found = publications.find(id);
        if (found == publications.end())
            return;
        log.tell(LogCategory::Advertising, [&] {
            return inDoubleQuotes(found->second.name) + " is withdrawn, after "
                   + durationText(log.now() - found->second.since);
        });
        publications.erase(found);
    }

    void tellName(AskId id, const std::string& what)
    {
        const std::lock_guard lock(mutex);
        const auto found = publications.find(id);
        if (found == publications.end())
            return;
        log.tell(LogCategory::Advertising, [&] {
            return inDoubleQuotes(found->second.name) + ' ' + what + ", after "
                   + durationText(log.now() - found->second.since);
        });
    }

    Log& log;
    const std::string name;
    std::mutex mutex; ///< guards the members below
    Log::Clock::time_point since;
    std::map<AskId, Publication> publications;
};

class ToldEngine final : public Engine {
public:
    ToldEngine(std::unique_ptr<Engine> told, std::string name, Log& log)
        : story(std::move(name), log), engine(std::move(told))
    {
    }

    void start(EventHandler handler) override
    {
        story.noteStart();
        engine->start([this, handler = std::move(handler)](Event event) {
            story.note(event);
            handler(std::move(event));
        });
    }

    void send(Generation generation, Request request) override
    {
        story.note(request);
        engine->send(generation, std::move(request));
    }

    void stop() override
    {
        if (!std::exchange(isStopped, true))
            story.noteStop();
        engine->stop();
    }

private:
    EngineStory story; ///< before `engine`, whose handler uses it
    const std::unique_ptr<Engine> engine;
    bool isStopped = false;
};

} // namespace

std::unique_ptr<Engine> withStory(std::unique_ptr<Engine> engine, std::string name, Log& log)
{
    if (!log.isOn(LogCategory::Engine) && !log.isOn(LogCategory::Advertising))
        return engine;
    return std::make_unique<ToldEngine>(std::move(engine), std::move(name), log);
}

} // namespace quillbox::dnssd
