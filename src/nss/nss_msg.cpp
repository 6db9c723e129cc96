#include "nss/nss_msg.h"

#include "base/bounded_string.h"
#include "base/zvs_error.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include <arpa/inet.h>

namespace {

constexpr std::size_t kMaxFrameBytes = std::numeric_limits<std::uint32_t>::max();

std::uint16_t ReadUint16(const char* at) {
    std::uint16_t value = 0;
    std::memcpy(&value, at, sizeof(value));
    return ntohs(value);
}

std::uint32_t ReadUint32(const char* at) {
    std::uint32_t value = 0;
    std::memcpy(&value, at, sizeof(value));
    return ntohl(value);
}

// Makes room for so many bytes behind the block's write pointer; what is there stays.
bool Reserve(ACE_Message_Block& block, std::size_t bytes) {
    const auto used = static_cast<std::size_t>(block.wr_ptr() - block.base());
    return block.space() >= bytes || block.size(used + bytes) == 0;
}

void AppendTlvHead(ACE_Message_Block& block, std::uint16_t tag, std::uint32_t length) {
    const std::uint16_t wireTag = htons(tag);
    const std::uint32_t wireLength = htonl(length);
    block.copy(reinterpret_cast<const char*>(&wireTag), sizeof(wireTag));
    block.copy(reinterpret_cast<const char*>(&wireLength), sizeof(wireLength));
}

}  // namespace

CNssMsgBase::CNssMsgBase(unsigned short msgType, unsigned int seq, const char* trans, unsigned int rspCode,
                         unsigned int traceId) {
    m_header.usiProtocolVersion = kNssProtocolVersion;
    m_header.usiMsgType = msgType;
    m_header.uiSeqID = seq;
    m_header.uiTraceID = traceId;
    m_header.uiRspCode = rspCode;
    m_header.uiPacketLength = kNssHeaderBytes;
    // The field is zero-padded, not terminated: a text may fill it.
    const std::size_t length = trans == nullptr ? 0 : strnlen(trans, sizeof(m_header.szTransactionNo) + 1);
    m_transactionFits =
        length == 0 || memcpy_s(m_header.szTransactionNo, sizeof(m_header.szTransactionNo), trans, length) == 0;
}

int CNssMsgBase::decode(const ACE_Message_Block* block) {
    if (block == nullptr || block->length() < kNssHeaderBytes) {
        return 1;
    }
    NssMsgHeader header;
    std::memcpy(&header, block->rd_ptr(), sizeof(header));
    NssSwapHeader(header);
    if (header.uiPacketLength < kNssHeaderBytes || header.uiPacketLength > block->length()) {
        return 1;
    }
    m_header = header;
    m_transactionFits = true;
    return 0;
}

CNssMsgBody::CNssMsgBody(unsigned short msgType, unsigned int seq, const char* trans, unsigned int rspCode,
                         unsigned int traceId, unsigned short tag)
    : CNssMsgBase(msgType, seq, trans, rspCode, traceId), m_tag(tag) {}

int CNssMsgBody::SetValue(const char* value, unsigned int length) {
    if (value == nullptr) {
        return ZVS_NULL_POINTER;
    }
    try {
        m_value.assign(value, length);
    } catch (const std::bad_alloc&) {
        return ZVS_ALLOC_MEMORY_ERROR;
    }
    m_hasValue = true;
    return 0;
}

int CNssMsgBody::encode(ACE_Message_Block* block) const {
    const std::size_t length = kNssHeaderBytes + (m_hasValue ? kNssTlvHeadBytes + m_value.size() : 0);
    if (block == nullptr) {
        return ZVS_NULL_POINTER;
    }
    if (!m_transactionFits || length > kMaxFrameBytes) {
        return ZVS_PARA_INVALID;
    }
    if (!Reserve(*block, length)) {
        return ZVS_ALLOC_MEMORY_ERROR;
    }
    NssMsgHeader wire = m_header;
    wire.uiPacketLength = static_cast<std::uint32_t>(length);
    NssSwapHeader(wire);
    block->copy(reinterpret_cast<const char*>(&wire), sizeof(wire));
    if (m_hasValue) {
        AppendTlvHead(*block, m_tag, static_cast<std::uint32_t>(m_value.size()));
        block->copy(m_value.data(), m_value.size());
    }
    return 0;
}

CNssXMLMsg::CNssXMLMsg(unsigned short msgType, unsigned int seq, const char* trans, unsigned int rspCode,
                       unsigned int traceId)
    : CNssMsgBody(msgType, seq, trans, rspCode, traceId, NSS_TAG_XML_CONTENT) {}

void NssSwapHeader(NssMsgHeader& header) noexcept {
    header.usiProtocolVersion = htons(header.usiProtocolVersion);
    header.usiMsgType = htons(header.usiMsgType);
    header.uiSeqID = htonl(header.uiSeqID);
    header.uiTraceID = htonl(header.uiTraceID);
    header.uiRspCode = htonl(header.uiRspCode);
    header.uiPacketLength = htonl(header.uiPacketLength);
}

bool NssFindItem(const char* body, std::size_t bodyLength, std::uint16_t tag, NssBodyView& value) noexcept {
    std::size_t at = 0;
    while (body != nullptr && bodyLength - at >= kNssTlvHeadBytes) {
        const std::uint32_t length = ReadUint32(body + at + 2);
        const std::size_t left = bodyLength - at - kNssTlvHeadBytes;
        if (length > left) {
            return false;
        }
        if (ReadUint16(body + at) == tag) {
            value.data = body + at + kNssTlvHeadBytes;
            value.length = length;
            return true;
        }
        at += kNssTlvHeadBytes + length;
    }
    return false;
}

bool NssBody(const ACE_Message_Block* frame, NssBodyView& body) noexcept {
    if (frame == nullptr || frame->length() < kNssHeaderBytes) {
        return false;
    }
    const std::uint32_t stated = ReadUint32(frame->rd_ptr() + offsetof(NssMsgHeader, uiPacketLength));
    if (stated < kNssHeaderBytes) {
        return false;
    }
    body.data = frame->rd_ptr() + kNssHeaderBytes;
    body.length = std::min<std::size_t>(stated, frame->length()) - kNssHeaderBytes;
    return true;
}
