#include "platform/tcp/socket.h"

namespace quillbox {

std::unique_ptr<Socket> Socket::adopt(std::shared_ptr<PoolContext> context, int descriptor,
                                      std::optional<SocketLedger::Place> place, Watch::For what)
{
    std::error_code error;
    auto watch = Watch::adopt(std::move(context), descriptor, what, error);
    return watch ? std::unique_ptr<Socket>(new Socket(std::move(place), std::move(watch)))
                 : nullptr;
}

Socket::Socket(std::optional<SocketLedger::Place> place, std::unique_ptr<Watch> watch)
    : place_(std::move(place)), watch_(std::move(watch))
{
}

} // namespace quillbox
