#pragma once

#include "nss/nss_msg_header.h"

#include <cstddef>
#include <cstdint>
#include <string>

class ACE_Message_Block;

// Reads the head of a frame. One thread at a time; the block given to decode is not kept.
class CNssMsgBase {
public:
    CNssMsgBase() = default;
    CNssMsgBase(unsigned short msgType, unsigned int seq, const char* trans, unsigned int rspCode,
                unsigned int traceId);
    virtual ~CNssMsgBase() = default;

    // Reads the head at the block's read pointer, which stays where it is. 0 for success; 1 for a null or short
    // block, or a length field below 116 or beyond the block's bytes.
    int decode(const ACE_Message_Block* block);

    // The head with every number in host order.
    NssMsgHeader& GetHeader() { return m_header; }
    const NssMsgHeader& GetHeader() const { return m_header; }

protected:
    NssMsgHeader m_header{};
    bool m_transactionFits = true;  // false: the text given to the constructor is longer than 63 characters
};

// A frame whose body is one tag-length-value item. encode allocates the block's storage and writes head and
// body behind the write pointer; 0 for success, ZVS_NULL_POINTER for a null block, ZVS_ALLOC_MEMORY_ERROR when there is
// no memory, ZVS_PARA_INVALID when the body or the transaction text is too long. The block is then as it was, save its
// size.
class CNssMsgBody : public CNssMsgBase {
public:
    CNssMsgBody(unsigned short msgType, unsigned int seq, const char* trans, unsigned int rspCode, unsigned int traceId,
                unsigned short tag);

    // Copies the value; 0 for success, ZVS_NULL_POINTER for a null value, ZVS_ALLOC_MEMORY_ERROR when there is no
    // memory.
    int SetValue(const char* value, unsigned int length);
    int encode(ACE_Message_Block* block) const;

private:
    unsigned short m_tag;
    bool m_hasValue = false;
    std::string m_value;
};

// The same with the tag for XML. Without SetXML (or SetValue) the frame has no body at all.
class CNssXMLMsg : public CNssMsgBody {
public:
    CNssXMLMsg(unsigned short msgType, unsigned int seq, const char* trans, unsigned int rspCode, unsigned int traceId);
    int SetXML(const char* xml, unsigned int length) { return SetValue(xml, length); }
};

// Turns the numbers of a head between host and wire order, in place; the same function does both ways.
void NssSwapHeader(NssMsgHeader& header) noexcept;

// A look at a body without copying: the first item of that tag. False when there is none, or when an item's
// length leads outside the frame.
struct NssBodyView {
    const char* data = nullptr;
    std::size_t length = 0;
};
bool NssFindItem(const char* body, std::size_t bodyLength, std::uint16_t tag, NssBodyView& value) noexcept;

// The body of a whole frame (behind the 116 bytes), bounded by the block and by uiPacketLength.
bool NssBody(const ACE_Message_Block* frame, NssBodyView& body) noexcept;
