#pragma once

#include "bp/link_memory.h"
#include "bp/message_block_ptr.h"
#include "nss/nss_msg_header.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace BP {

// Copies the head at the block's read pointer, every number turned to host order. False for a null block or one
// that holds fewer than 116 bytes. This and the three below: any thread.
bool ReadFrameHead(const ACE_Message_Block* frame, NssMsgHeader& head) noexcept;

// True when the block and its continuation hold exactly the bytes that the head at its front announces.
bool IsWholeFrame(const ACE_Message_Block* frame) noexcept;

// The transaction text of a head, which may fill its field without a terminator. Valid as long as the head.
std::string_view TransactionOf(const NssMsgHeader& head) noexcept;

// A frame without a body from a head in host order, whose length field is set here. Null when there is no memory.
MessageBlockPtr MakeBareFrame(NssMsgHeader head);

// Cuts a stream of bytes into frames. The head is checked as soon as it is whole, so a length that is not allowed
// never leads to an allocation. One thread at a time.
class FrameReader {
public:
    enum class Fault { None, Version, Length, Memory };

    // Whose memory the frames take; null, as at first, for nobody's. Outlives the reader.
    void SetAccount(LinkAccount* account) { m_account = account; }

    // Frames longer than this are a fault; may change between frames.
    void SetMaxFrameBytes(std::size_t maxFrameBytes) { m_maxFrameBytes = maxFrameBytes; }

    // Takes bytes up to the end of the frame at most and returns how many. After a fault it takes none.
    std::size_t Feed(const char* data, std::size_t length);

    // True when a frame is whole; it must be taken before more is fed.
    bool Complete() const { return m_frame != nullptr && m_frame->length() == m_frameBytes; }
    // Of the frame that is whole.
    std::size_t FrameBytes() const { return m_frameBytes; }
    MessageBlockPtr Take();
    // Gives the memory of a frame back that is not whole; nothing is fed behind it.
    void Drop() { m_frame.reset(); }

    // True between the first byte of a frame and its last.
    bool Partial() const { return m_headFilled > 0; }
    Fault GetFault() const { return m_fault; }
    // What the head says, for the log line of a fault.
    std::uint16_t HeadVersion() const { return m_version; }
    std::uint32_t HeadLength() const { return m_frameBytes; }
    std::size_t MaxFrameBytes() const { return m_maxFrameBytes; }

private:
    void HeadComplete();

    LinkAccount* m_account = nullptr;
    std::size_t m_maxFrameBytes = kNssHeaderBytes;
    char m_head[kNssHeaderBytes] = {};
    std::size_t m_headFilled = 0;
    std::uint16_t m_version = 0;
    std::uint32_t m_frameBytes = 0;  // valid once the head is whole
    MessageBlockPtr m_frame;
    Fault m_fault = Fault::None;
};

}  // namespace BP
