#include "bp/frame_reader.h"

#include "nss/nss_msg.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace BP {

namespace {

MessageBlockPtr MakeBlockOf(LinkAccount* account, std::size_t bytes) {
    MessageBlockPtr block(new (std::nothrow)
                              ACE_Message_Block(bytes, ACE_Message_Block::MB_DATA, nullptr, nullptr, account));
    // A block whose data could not be had exists all the same.
    return block == nullptr || block->data_block() == nullptr || block->base() == nullptr ? nullptr : std::move(block);
}

}  // namespace

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

std::size_t FrameReader::Feed(const char* data, std::size_t length) {
    if (m_fault != Fault::None || Complete()) {
        return 0;
    }
    if (m_frame == nullptr) {
        const std::size_t take = std::min(length, kNssHeaderBytes - m_headFilled);
        std::memcpy(m_head + m_headFilled, data, take);
        m_headFilled += take;
        if (m_headFilled == kNssHeaderBytes) {
            HeadComplete();
        }
        return take;
    }
    const std::size_t take = std::min(length, m_frameBytes - m_frame->length());
    m_frame->copy(data, take);
    return take;
}

void FrameReader::HeadComplete() {
    NssMsgHeader head;
    std::memcpy(&head, m_head, kNssHeaderBytes);
    NssSwapHeader(head);
    m_version = head.usiProtocolVersion;
    m_frameBytes = head.uiPacketLength;
    if (m_version != kNssProtocolVersion) {
        m_fault = Fault::Version;
        return;
    }
    if (m_frameBytes < kNssHeaderBytes || m_frameBytes > m_maxFrameBytes) {
        m_fault = Fault::Length;
        return;
    }
    m_frame = MakeBlockOf(m_account, m_frameBytes);
    if (m_frame == nullptr) {
        m_fault = Fault::Memory;
        return;
    }
    m_frame->copy(m_head, kNssHeaderBytes);
}

MessageBlockPtr FrameReader::Take() {
    m_headFilled = 0;
    return std::move(m_frame);
}

}  // namespace BP
