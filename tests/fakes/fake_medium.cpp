#include "tests/fakes/fake_engine.h"

#include <algorithm>
#include <chrono>
#include <list>
#include <utility>

#include <strings.h>

namespace quillbox::dnssd {

namespace {

constexpr int kLoopback = 1;
constexpr std::chrono::milliseconds kAnswerDelay{20};
constexpr std::chrono::milliseconds kProbingTime{750};
constexpr std::chrono::milliseconds kSettlingTime{1000};

bool isSame(const std::string& a, const std::string& b)
{
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

Event lossOf(const Event& found)
{
    if (const auto* service = std::get_if<ServiceFound>(&found))
        return ServiceLost{service->id, service->sighting, service->name, service->type,
                           service->domain};
    if (const auto* location = std::get_if<LocationFound>(&found))
        return LocationLost{location->id, location->sighting, location->hostName, location->port};
    const auto& address = std::get<AddressFound>(found);
    return AddressLost{address.id, address.sighting, address.address};
}

struct Registration {
    RegisterRequest request;
    bool isEstablished = false;
};

struct Question {
    Request request;
    std::vector<Event> told;
};

struct Seat {
    FakeMedium::Host host;
    Engine::EventHandler handler;
    bool isUp = false;
    std::list<Registration> registrations;
    std::list<Question> questions;

    void emit(const Event& event) const
    {
        if (handler)
            handler(event);
    }
};

} // namespace

struct FakeMedium::World : std::enable_shared_from_this<World> {
    explicit World(std::shared_ptr<DispatchQueue> worldQueue) : queue(std::move(worldQueue)) {}

    const std::shared_ptr<DispatchQueue> queue;
    std::list<Seat> seats;

    Seat* seat(const std::string& hostName)
    {
        const auto found = std::ranges::find_if(
            seats, [&hostName](const Seat& one) { return one.host.name == hostName; });
        return found != seats.end() ? &*found : nullptr;
    }

    void after(std::chrono::milliseconds delay, std::function<void(World&)> work)
    {
        queue->asyncAfter(delay, [weak = weak_from_this(), work = std::move(work)] {
            if (const auto self = weak.lock())
                work(*self);
        });
    }

    void take(Seat& from, const Request& request)
    {
        if (!from.isUp)
            return;
        const RequestId id = std::visit([](const auto& one) { return one.id; }, request);
        if (std::holds_alternative<StopRequest>(request)) {
            from.registrations.remove_if(
                [id](const Registration& one) { return one.request.id == id; });
            from.questions.remove_if([id](const Question& one) {
                return std::visit([](const auto& asked) { return asked.id; }, one.request) == id;
            });
            after(kAnswerDelay, [](World& self) { self.answer(); });
        } else if (const auto* registration = std::get_if<RegisterRequest>(&request)) {
            publish(from, *registration);
        } else if (const auto* update = std::get_if<UpdateAddressesRequest>(&request)) {
            for (Registration& one : from.registrations) {
                if (one.request.id == id)
                    one.request.addresses = update->addresses;
            }
            after(kAnswerDelay, [](World& self) { self.answer(); });
        } else {
            from.questions.push_back({request, {}});
            after(kAnswerDelay, [](World& self) { self.answer(); });
            after(kSettlingTime, [&from, id](World& /*self*/) {
                const bool stands = std::ranges::any_of(from.questions, [id](const auto& one) {
                    return std::visit([](const auto& asked) { return asked.id; }, one.request)
                           == id;
                });
                if (stands)
                    from.emit(Settled{id});
            });
        }
    }

    bool isTaken(const RegisterRequest& wanted, const Seat& from, bool here) const
    {
        for (const Seat& other : seats) {
            if ((&other == &from) != here)
                continue;
            for (const Registration& one : other.registrations) {
                if ((here || one.isEstablished) && isSame(one.request.name, wanted.name)
                    && isSame(one.request.type, wanted.type))
                    return true;
            }
        }
        return false;
    }

    void publish(Seat& from, const RegisterRequest& request)
    {
        // A conflict with a name on this host is reported at once, with another host after probing.
        if (isTaken(request, from, true))
            return from.emit(Collision{request.id, Collision::Of::Service});
        from.registrations.push_back({request, false});
        after(kProbingTime, [&from, id = request.id](World& self) { self.establish(from, id); });
    }

    void establish(Seat& from, RequestId id)
    {
        const auto one = std::ranges::find_if(
            from.registrations, [id](const Registration& each) { return each.request.id == id; });
        if (one == from.registrations.end())
            return;
        if (isTaken(one->request, from, false)) {
            from.registrations.erase(one);
            return from.emit(Collision{id, Collision::Of::Service});
        }
        one->isEstablished = true;
        from.emit(Registered{id});
        answer();
    }

    void answer()
    {
        for (Seat& asking : seats) {
            for (Question& question : asking.questions) {
                const std::vector<Event> now = answers(asking, question.request);
                const auto isIn = [](const std::vector<Event>& list, const Event& event) {
                    return std::ranges::find(list, event) != list.end();
                };
                for (const Event& event : question.told) {
                    if (!isIn(now, event))
                        asking.emit(lossOf(event));
                }
                for (const Event& event : now) {
                    if (!isIn(question.told, event))
                        asking.emit(event);
                }
                question.told = now;
            }
        }
    }

    std::vector<Event> answers(const Seat& asking, const Request& question) const
    {
        std::vector<Event> result;
        for (const Seat& other : seats) {
            for (const Registration& one : other.registrations) {
                if (one.isEstablished)
                    answer(result, asking, question, other, one.request);
            }
            if (const auto* host = std::get_if<AddressRequest>(&question);
                host != nullptr && isSame(host->hostName, other.host.name) && other.isUp)
                addAddresses(result, asking, *host, other.host.addresses);
        }
        return result;
    }

    static void answer(std::vector<Event>& result, const Seat& asking, const Request& question,
                       const Seat& owner, const RegisterRequest& published)
    {
        const bool isOwn = &owner == &asking;
        if (const auto* browse = std::get_if<BrowseRequest>(&question)) {
            if (isSame(browse->type, published.type)) {
                for (const Sighting sighting : sightings(asking, isOwn))
                    result.emplace_back(ServiceFound{browse->id, sighting, published.name,
                                                     published.type, "local"});
            }
        } else if (const auto* location = std::get_if<LocationRequest>(&question)) {
            if (isSame(location->type, published.type) && isSame(location->name, published.name)) {
                for (const Sighting sighting : sightings(asking, isOwn))
                    result.emplace_back(
                        LocationFound{location->id, sighting, published.hostName, published.port});
            }
        } else if (const auto* host = std::get_if<AddressRequest>(&question);
                   host != nullptr && isSame(host->hostName, published.hostName)) {
            for (const HostAddress& entry : published.addresses) {
                if (entry.interfaceIndex == owner.host.linkInterface)
                    addAddresses(result, asking, *host, {entry.address});
                else if (isOwn && entry.address.family == host->family)
                    result.emplace_back(AddressFound{
                        host->id, {entry.interfaceIndex, Family::IPv4}, entry.address});
            }
        }
    }

    static std::vector<Sighting> sightings(const Seat& asking, bool isOwn)
    {
        std::vector<Sighting> result{{asking.host.linkInterface, Family::IPv4},
                                     {asking.host.linkInterface, Family::IPv6}};
        if (isOwn)
            result.push_back({kLoopback, Family::IPv4});
        return result;
    }

    static void addAddresses(std::vector<Event>& result, const Seat& asking,
                             const AddressRequest& question, const std::vector<Address>& addresses)
    {
        for (const Address& one : addresses) {
            if (one.family != question.family)
                continue;
            for (const Sighting sighting : sightings(asking, false))
                result.emplace_back(AddressFound{question.id, sighting, one});
        }
    }
};

class FakeMedium::Member final : public Engine {
public:
    Member(const std::shared_ptr<World>& medium, Seat& own) : world(medium), seat(own) {}
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;
    ~Member() override = default;

    void start(EventHandler handler) override
    {
        seat.handler = std::move(handler);
        if (const auto medium = world.lock())
            medium->queue->async([&own = seat] {
                own.isUp = true;
                own.emit(EngineUp{own.host.name});
            });
    }

    void send(const Request& request) override
    {
        if (const auto medium = world.lock(); medium && seat.isUp)
            medium->take(seat, request);
    }

    void stop() override
    {
        const auto medium = world.lock();
        if (!medium)
            return;
        seat.handler = nullptr;
        seat.registrations.clear();
        seat.questions.clear();
        medium->answer();
    }

private:
    std::weak_ptr<World> world;
    Seat& seat; ///< owned by the world
};

FakeMedium::FakeMedium(std::shared_ptr<DispatchQueue> queue)
    : world(std::make_shared<World>(std::move(queue)))
{
}

FakeMedium::~FakeMedium() = default;

std::unique_ptr<Engine> FakeMedium::makeEngine(Host host)
{
    world->seats.push_back({std::move(host), nullptr, false, {}, {}});
    return std::make_unique<Member>(world, world->seats.back());
}

void FakeMedium::takeAway(const std::string& hostName)
{
    Seat* seat = world->seat(hostName);
    seat->isUp = false;
    seat->registrations.clear();
    seat->questions.clear();
    seat->emit(EngineDown{DnsSdError::EngineUnavailable});
    world->answer();
}

void FakeMedium::bringBack(const std::string& hostName)
{
    Seat* seat = world->seat(hostName);
    seat->isUp = true;
    seat->emit(EngineUp{hostName});
}

} // namespace quillbox::dnssd
