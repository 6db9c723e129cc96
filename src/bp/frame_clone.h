#pragma once

#include "bp/message_block_ptr.h"

namespace BP {

// A deep copy of a block, its continuation chain included; null when there is no memory. A block of ACE's own
// class without a chain becomes one piece of memory with its data, where ACE's clone takes three; it is used and
// released as any other, on any thread.
MessageBlockPtr CloneFrame(const ACE_Message_Block& block) noexcept;

}  // namespace BP
