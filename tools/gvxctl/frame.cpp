#include "gvxctl/frame.h"

#include "nss/nss_msg.h"

#include <ace/Message_Block.h>

#include <cstddef>
#include <cstring>

#include <arpa/inet.h>

namespace gvxctl {
namespace {

// The bare head with those bytes behind it, counted in its length.
std::string WithPlainBody(std::string head, const std::string& body) {
    const std::size_t length = head.size() + body.size();
    if (length > kMaxFrameBytes) {
        return std::string();
    }
    const std::uint32_t wire = htonl(static_cast<std::uint32_t>(length));
    std::memcpy(&head[offsetof(NssMsgHeader, uiPacketLength)], &wire, sizeof wire);
    return head + body;
}

}  // namespace

std::string Frame::Transaction() const {
    return std::string(head.szTransactionNo, ::strnlen(head.szTransactionNo, sizeof head.szTransactionNo));
}

bool Frame::Item(std::uint16_t tag, std::string& value) const {
    NssBodyView view;
    if (!NssFindItem(body.data(), body.size(), tag, view)) {
        return false;
    }
    value.assign(view.data, view.length);
    return true;
}

std::string EncodeFrame(const FrameSpec& spec) {
    CNssMsgBody message(spec.type, spec.seq, spec.transaction.c_str(), spec.code, spec.trace, spec.tag);
    const bool hasBody = spec.tag != NSS_TAG_INVALID;
    if (hasBody && message.SetValue(spec.body.data(), static_cast<unsigned int>(spec.body.size())) != 0) {
        return std::string();
    }
    ACE_Message_Block block;
    if (message.encode(&block) != 0) {
        return std::string();
    }
    std::string bytes(block.rd_ptr(), block.length());
    return hasBody ? bytes : WithPlainBody(std::move(bytes), spec.body);
}

FrameSpec ResponseTo(const Frame& request, std::uint32_t code) {
    FrameSpec spec;
    spec.type = static_cast<std::uint16_t>(request.head.usiMsgType + kNssResponseOffset);
    spec.seq = request.head.uiSeqID;
    spec.trace = request.head.uiTraceID;
    spec.code = code;
    spec.transaction = request.Transaction();
    return spec;
}

FrameCutter::Result FrameCutter::Next(Frame& frame, std::string& error) {
    if (m_bytes.size() < kNssHeaderBytes) {
        return Result::NeedMore;
    }
    NssMsgHeader head;
    std::memcpy(&head, m_bytes.data(), sizeof head);
    NssSwapHeader(head);
    const std::size_t length = head.uiPacketLength;
    if (length < kNssHeaderBytes || length > m_max) {
        error = "a frame claims " + std::to_string(length) + " bytes, allowed are " + std::to_string(kNssHeaderBytes) +
                " to " + std::to_string(m_max);
        return Result::Broken;
    }
    if (m_bytes.size() < length) {
        return Result::NeedMore;
    }
    ACE_Message_Block block(m_bytes.data(), length);
    block.wr_ptr(length);
    CNssMsgBase message;
    if (message.decode(&block) != 0) {
        error = "a frame's head cannot be read";
        return Result::Broken;
    }
    frame.head = message.GetHeader();
    frame.body.assign(m_bytes, kNssHeaderBytes, length - kNssHeaderBytes);
    m_bytes.erase(0, length);
    return Result::Ready;
}

}  // namespace gvxctl
