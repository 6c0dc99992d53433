#include "platform/tcp/socket.h"

namespace quillbox {

std::unique_ptr<Socket> Socket::adopt(std::shared_ptr<PoolContext> context, int descriptor,
                                      std::shared_ptr<SocketLedger> ledger, Watch::For what)
{
    std::error_code error;
    auto watch = Watch::adopt(std::move(context), descriptor, what, error);
    return watch ? std::unique_ptr<Socket>(new Socket(std::move(watch), std::move(ledger)))
                 : nullptr;
}

Socket::Socket(std::unique_ptr<Watch> watch, std::shared_ptr<SocketLedger> ledger)
    : watch_(std::move(watch)), ledger_(std::move(ledger))
{
    if (ledger_)
        ledger_->noteOpened();
}

Socket::~Socket()
{
    // The socket is counted until it is closed.
    watch_.reset();
    if (ledger_)
        ledger_->noteClosed();
}

} // namespace quillbox
