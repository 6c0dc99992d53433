#include "platform/dial/tcp_network.h"

#include "platform/dial/connector.h"
#include "platform/dial/dial_context.h"
#include "platform/dial/service_locator.h"
#include "platform/tcp/tcp_connection.h"
#include "platform/tcp/tcp_listener.h"

#include <utility>

namespace quillbox {

TcpNetwork::TcpNetwork(DispatchPool& pool, DnsSd& dnsSd, NetworkMonitor& monitor, Reach reach)
    : context_(std::make_shared<DialContext>(
        dnsSd, monitor, reach, pool.makeQueue("resolving", QualityOfService::UserInitiated)))
{
}

std::shared_ptr<Listener> TcpNetwork::makeListener(const TcpParameters& parameters,
                                                   std::uint16_t port, std::error_code& error)
{
    return makeTcpListener(context_, parameters, port, error);
}

std::shared_ptr<Connection> TcpNetwork::makeConnection(const Endpoint& endpoint,
                                                       const TcpParameters& parameters)
{
    const auto client = std::dynamic_pointer_cast<TcpConnection>(parameters.client.lock());
    auto connector =
        std::make_shared<Connector>(context_, endpoint, client ? client->peer() : SocketAddress());
    return TcpConnection::make(context_, std::move(connector),
                               client ? client->weak_from_this() : std::weak_ptr<TcpConnection>());
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
