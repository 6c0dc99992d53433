#include "platform/tcp/listening_port.h"

#include "platform/tcp/service_port.h"
#include "platform/tcp/socket_calls.h"

#include <optional>
#include <utility>

namespace quillbox {

std::unique_ptr<ListeningPort> ListeningPort::open(std::shared_ptr<TcpContext> context,
                                                   std::uint16_t port, bool allowsReuse,
                                                   std::error_code& error, std::string service)
{
    const int descriptor = openListeningSocket(port, allowsReuse, error, context->reach);
    if (error)
        return nullptr;
    auto adopted = Socket::adopt(context->pool, descriptor, std::nullopt);
    if (!adopted) {
        error = std::make_error_code(std::errc::not_enough_memory);
        return nullptr;
    }
    return std::unique_ptr<ListeningPort>(
        new ListeningPort(std::move(context), std::move(adopted), std::move(service)));
}

std::unique_ptr<ListeningPort>
ListeningPort::openForService(const std::shared_ptr<TcpContext>& context,
                              const std::string& service, bool allowsReuse,
                              const ListeningPort& instead)
{
    for (const auto port : servicePorts(service, ephemeralPorts())) {
        if (port == instead.number())
            break;
        std::error_code error;
        if (auto opened = open(context, port, allowsReuse, error, service))
            return opened;
    }
    return nullptr;
}

ListeningPort::ListeningPort(std::shared_ptr<TcpContext> context, std::unique_ptr<Socket> socket,
                             std::string service)
    : context_(std::move(context)),
      socket_(std::move(socket)),
      number_(localPort(socket_->descriptor()))
{
    context_->ownPorts.add(number_, std::move(service));
}

ListeningPort::~ListeningPort()
{
    // First, because others wait for the removal to open the port themselves.
    socket_.reset();
    context_->ownPorts.remove(number_);
}

} // namespace quillbox
