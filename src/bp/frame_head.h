#pragma once

#include "bp/message_block_ptr.h"
#include "nss/nss_msg_header.h"

#include <cstdint>
#include <string_view>

namespace BP {

// Copies the head at the block's read pointer, every number turned to host order. False for a null block or one
// that holds fewer than 116 bytes.
bool ReadFrameHead(const ACE_Message_Block* frame, NssMsgHeader& head) noexcept;

// True when the block and its continuation hold exactly the bytes that the head at its front announces.
bool IsWholeFrame(const ACE_Message_Block* frame) noexcept;

// The transaction text of a head, which may fill its field without a terminator. Valid as long as the head.
std::string_view TransactionOf(const NssMsgHeader& head) noexcept;

// A frame without a body from a head in host order, whose length field is set here. Null when there is no memory.
MessageBlockPtr MakeBareFrame(NssMsgHeader head);

}  // namespace BP
