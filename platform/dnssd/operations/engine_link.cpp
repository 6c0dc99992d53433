#include "platform/dnssd/operations/engine_link.h"

#include <algorithm>
#include <utility>

namespace quillbox::dnssd {

void EngineLink::start()
{
    engine->start([this](const Event& event) { handle(event); });
}

void EngineLink::stop()
{
    dropRequests();
    engine->stop();
}

void EngineLink::handle(const Event& event)
{
    if (const auto* up = std::get_if<EngineUp>(&event)) {
        currentState = State::Up;
        currentError.clear();
        if (!up->hostName.empty())
            computerName = up->hostName;
        dropRequests();
        tellAll([](Client& client) { client.engineUp(); });
    } else if (const auto* down = std::get_if<EngineDown>(&event)) {
        currentState = State::Down;
        currentError = down->error ? down->error : DnsSdError::EngineUnavailable;
        dropRequests();
        tellAll([this](Client& client) { client.engineDown(currentError); });
    } else {
        std::visit(
            [this, &event](const auto& answer) {
                if constexpr (requires { answer.id; })
                    route(answer.id, event);
            },
            event);
    }
}

void EngineLink::route(RequestId id, const Event& event)
{
    if (const auto found = routes.find(id); found != routes.end())
        found->second->engineEvent(event);
}

void EngineLink::tellAll(const std::function<void(Client&)>& tell)
{
    // Clients may attach and detach during the calls. New ones have read the new state already.
    const auto before = clients;
    for (Client* client : before) {
        if (std::ranges::find(clients, client) != clients.end())
            tell(*client);
    }
}

void EngineLink::dropRequests()
{
    for (const auto& [id, client] : routes)
        client->id = 0;
    routes.clear();
}

EngineLink::Client::Client(EngineLink& engineLink) : link(engineLink)
{
    link.clients.push_back(this);
}

EngineLink::Client::~Client()
{
    end();
    std::erase(link.clients, this);
}

void EngineLink::Client::readState()
{
    if (link.isUp())
        engineUp();
    else if (link.currentState == State::Down)
        engineDown(link.currentError);
}

void EngineLink::Client::send(Request request)
{
    if (++link.lastId == 0) // 0 means none; no request lives until ids are reused
        ++link.lastId;
    id = link.lastId;
    std::visit([this](auto& query) { query.id = id; }, request);
    link.routes[id] = this;
    link.engine->send(request);
}

bool EngineLink::Client::end()
{
    if (id == 0)
        return false;
    link.routes.erase(id);
    link.engine->send(StopRequest{std::exchange(id, 0)});
    return true;
}

} // namespace quillbox::dnssd
