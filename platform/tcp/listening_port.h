#pragma once

#include "platform/tcp/socket.h"
#include "platform/tcp/tcp_context.h"

#include <cstdint>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

namespace quillbox {

/// A port on which the kernel accepts connections; one of the program's own ports until the
/// destructor closes it. Used on one strand at a time.
class ListeningPort final {
public:
    /// Opens a port, which the kernel chooses if it is `kAnyPort`. `service` is what `OwnPorts` is
    /// told. On failure returns null and sets `error`.
    static std::unique_ptr<ListeningPort> open(std::shared_ptr<TcpContext> context,
                                               std::uint16_t port, bool allowsReuse,
                                               std::error_code& error, std::string service = {});

    /// Opens the best port of the service with this name that is free (`servicePorts`). Null if
    /// there is none better than `instead`.
    static std::unique_ptr<ListeningPort> openForService(const std::shared_ptr<TcpContext>& context,
                                                         const std::string& service,
                                                         bool allowsReuse,
                                                         const ListeningPort& instead);

    ~ListeningPort();

    ListeningPort(const ListeningPort&) = delete;
    ListeningPort& operator=(const ListeningPort&) = delete;

    /// Tells `OwnPorts` the service of a port that was opened without one.
    void setService(std::string service) const
    {
        context_->ownPorts.name(number_, std::move(service));
    }

    Socket& socket() const { return *socket_; }
    std::uint16_t number() const { return number_; }

private:
    ListeningPort(std::shared_ptr<TcpContext> context, std::unique_ptr<Socket> socket,
                  std::string service);

    const std::shared_ptr<TcpContext> context_;
    std::unique_ptr<Socket> socket_;
    const std::uint16_t number_;
};

} // namespace quillbox
