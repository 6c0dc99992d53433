#include "platform/tcp/pending_send.h"

#include "platform/tcp/pipe_pool.h"
#include "platform/tcp/socket_calls.h"

#include <utility>

namespace quillbox {

PendingSend::PendingSend(Content content)
    : content_(std::move(content)), piped_(dynamic_cast<PipedChunk*>(content_.storage()))
{
}

Transfer PendingSend::sendSome(int socket, ChunkPool& chunks)
{
    Transfer moved;
    if (piped_ && !rest_) {
        moved = piped_->drain(socket);
        if (isSpliceRefused(moved))
            moved = takeRest(chunks);
    }
    if (rest_)
        moved = quillbox::sendSome(socket, rest_->bytes().subspan(sent_ - restBegin_));
    else if (!piped_)
        moved = quillbox::sendSome(socket, content_.bytes().subspan(sent_));
    sent_ += moved.count;
    return moved;
}

/// Returns an error, and leaves `rest_` null, unless all remaining bytes can be read.
Transfer PendingSend::takeRest(ChunkPool& chunks)
{
    auto rest = piped_->takeRest(chunks);
    if (rest->size() != content_.size() - sent_)
        return {.count = 0, .error = std::make_error_code(std::errc::io_error)};
    rest_ = std::move(rest);
    restBegin_ = sent_;
    return {};
}

} // namespace quillbox
