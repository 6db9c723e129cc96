#pragma once

#include <ace/Message_Block.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>

namespace BP {

struct ReleaseBlock {
    void operator()(ACE_Message_Block* block) const noexcept { block->release(); }
};

// A message block that is released at the end of its scope, its continuation chain included. One thread at a time.
using MessageBlockPtr = std::unique_ptr<ACE_Message_Block, ReleaseBlock>;

// An empty block with room for size bytes; null with errno ENOMEM when there is no memory. A block whose data could
// not be had exists all the same, and nearly each of its operations goes through the missing data.
inline MessageBlockPtr MakeMessageBlock(std::size_t size) noexcept {
    MessageBlockPtr block(new (std::nothrow) ACE_Message_Block(size));
    if (block != nullptr && block->data_block() == nullptr) {
        block.reset();
    }
    if (block == nullptr) {
        errno = ENOMEM;
    }
    return block;
}

}  // namespace BP
