#include "platform/tcp/socket.h"

#include <unistd.h>

namespace quillbox {

std::unique_ptr<Socket> Socket::adopt(std::shared_ptr<PoolContext> context, int descriptor,
                                      std::shared_ptr<SocketLedger> ledger)
{
    std::unique_ptr<Socket> socket(new Socket(std::move(context), std::move(ledger)));
    std::error_code error;
    socket->descriptor_.assign(descriptor, error);
    if (!error)
        return socket;
    ::close(descriptor);
    return nullptr;
}

std::unique_ptr<Socket> Socket::watchedAnew(std::unique_ptr<Socket> socket)
{
    return adopt(socket->context_, socket->descriptor_.release(), socket->ledger_);
}

Socket::Socket(std::shared_ptr<PoolContext> context, std::shared_ptr<SocketLedger> ledger)
    : context_(std::move(context)), ledger_(std::move(ledger)), descriptor_(*context_)
{
    if (ledger_)
        ledger_->noteOpened();
}

Socket::~Socket()
{
    std::error_code ignored;
    descriptor_.close(ignored);
    if (ledger_)
        ledger_->noteClosed();
}

void Socket::cancelWaits()
{
    std::error_code ignored;
    descriptor_.cancel(ignored);
}

} // namespace quillbox
