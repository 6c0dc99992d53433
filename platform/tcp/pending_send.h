#pragma once

#include "platform/tcp/chunk_pool.h"
#include "platform/tcp/socket_calls.h"
#include "platform/values/content.h"

#include <cstddef>
#include <memory>

namespace quillbox {

class PipedChunk;

/// A content that is being sent, in memory or in a pipe.
class PendingSend final {
public:
    PendingSend() = default;
    explicit PendingSend(Content content);

    /// Whether the content can be sent: bytes in memory, or a piped chunk of this backend.
    bool isSendable() const
    {
        return piped_ != nullptr || content_.bytes().size() == content_.size();
    }

    bool isNothing() const { return sent_ == content_.size(); }

    /// The number of bytes sent so far.
    std::size_t sentCount() const { return sent_; }

    /// Sends as much as the socket accepts without blocking. If the system cannot splice from the
    /// pipe to this socket, the rest is copied to memory, in a buffer from `chunks`.
    Transfer sendSome(int socket, ChunkPool& chunks);

private:
    Transfer takeRest(ChunkPool& chunks);

    Content content_;
    PipedChunk* piped_ = nullptr; ///< the storage of the content if it is in a pipe
    std::size_t sent_ = 0;
    std::unique_ptr<Chunk> rest_; ///< the rest of the content, if copied from the pipe to memory
    std::size_t restBegin_ = 0;   ///< the offset of `rest_` in the content
};

} // namespace quillbox
