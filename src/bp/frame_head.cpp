#include "bp/frame_head.h"

#include "nss/nss_msg.h"

#include <cstring>

namespace BP {

bool ReadFrameHead(const ACE_Message_Block* frame, NssMsgHeader& head) noexcept {
    if (frame == nullptr || frame->length() < kNssHeaderBytes) {
        return false;
    }
    std::memcpy(&head, frame->rd_ptr(), kNssHeaderBytes);
    NssSwapHeader(head);
    return true;
}

bool IsWholeFrame(const ACE_Message_Block* frame) noexcept {
    NssMsgHeader head;
    return ReadFrameHead(frame, head) && head.uiPacketLength == frame->total_length();
}

std::string_view TransactionOf(const NssMsgHeader& head) noexcept {
    return std::string_view(head.szTransactionNo, strnlen(head.szTransactionNo, sizeof(head.szTransactionNo)));
}

MessageBlockPtr MakeBareFrame(NssMsgHeader head) {
    MessageBlockPtr frame = MakeMessageBlock(kNssHeaderBytes);
    if (frame == nullptr) {
        return nullptr;
    }
    head.uiPacketLength = static_cast<std::uint32_t>(kNssHeaderBytes);
    NssSwapHeader(head);
    frame->copy(reinterpret_cast<const char*>(&head), kNssHeaderBytes);
    return frame;
}

}  // namespace BP
