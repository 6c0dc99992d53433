#include "platform/tcp/tcp.h"

#include "platform/tcp/service_locator.h"
#include "platform/tcp/tcp_connection.h"
#include "platform/tcp/tcp_context.h"
#include "platform/tcp/tcp_listener.h"

#include <utility>

namespace quillbox {

TcpNetwork::TcpNetwork(DispatchPool& pool, DnsSd& dnsSd, NetworkMonitor& monitor, Reach reach)
    : context_(
        new TcpContext{.pool = pool.context(QualityOfService::UserInitiated),
                       .dnsSd = dnsSd,
                       .monitor = monitor,
                       .addresses = std::make_shared<AddressBook>(
                           dnsSd, pool.makeQueue("addresses", QualityOfService::UserInitiated)),
                       .chunks = std::make_shared<ChunkPool>(),
                       .pipes = std::make_shared<PipePool>(),
                       .sockets = std::make_shared<SocketLedger>(SocketLedger::defaultMost()),
                       .hosts = std::make_shared<HostLookup>(),
                       .reach = reach,
                       .ownPorts = {},
                       .provenAddresses = {},
                       .traffic = {}})
{
}

TcpNetwork::~TcpNetwork() = default;

std::shared_ptr<Listener> TcpNetwork::makeListener(const TcpParameters& parameters,
                                                   std::uint16_t port, std::error_code& error)
{
    return makeTcpListener(context_, parameters, port, error);
}

std::shared_ptr<Connection> TcpNetwork::makeConnection(const Endpoint& endpoint,
                                                       const TcpParameters& parameters)
{
    return makeOutgoingConnection(context_, endpoint, parameters.client);
}

std::unique_ptr<ServiceLocator>
TcpNetwork::makeServiceLocator(std::shared_ptr<DispatchQueue> mainQueue,
                               std::function<bool()> resolvesFoundNames)
{
    return quillbox::makeServiceLocator({
        .dnsSd = context_->dnsSd,
        .monitor = context_->monitor,
        .ownPorts = context_->ownPorts,
        .lookUp =
            [hosts = context_->hosts](const std::string& name, HostLookup::Done done) {
                hosts->lookUp(name, std::move(done));
            },
        .resolvesFoundNames = std::move(resolvesFoundNames),
        .queue = std::move(mainQueue),
    });
}

TrafficReport TcpNetwork::traffic() const
{
    return context_->traffic.report();
}

bool TcpNetwork::flush(std::chrono::milliseconds limit)
{
    return context_->sockets->waitUntilNoneIsOpen(limit);
}

} // namespace quillbox
