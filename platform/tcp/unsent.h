#pragma once

#include "platform/content.h"
#include "platform/tcp/chunk_pool.h"
#include "platform/tcp/transfer.h"

#include <cstddef>
#include <memory>

namespace quillbox {

class PipedChunk;

/// A content on its way into a socket, in memory or in a pipe.
class Unsent final {
public:
    Unsent() = default;
    explicit Unsent(Content content);

    /// Whether the content is one that can be sent: bytes in memory, or a chunk of this backend.
    bool isSendable() const
    {
        return piped_ != nullptr || content_.bytes().size() == content_.size();
    }

    bool isNothing() const { return sent_ == content_.size(); }

    /// The bytes that have been sent.
    std::size_t sentCount() const { return sent_; }

    /// Sends what the socket takes at once. Where the system does not move bytes from a pipe into
    /// this socket, the rest goes by way of memory, and of `chunks`.
    Transfer sendSome(int socket, ChunkPool& chunks);

private:
    Transfer takeRest(ChunkPool& chunks);

    Content content_;
    PipedChunk* piped_ = nullptr; ///< the content's, if it is one
    std::size_t sent_ = 0;
    std::unique_ptr<Chunk> rest_; ///< what came out of the pipe again
    std::size_t restBegin_ = 0;   ///< where in the content that begins
};

} // namespace quillbox
