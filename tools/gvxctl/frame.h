#pragma once

#include "nss/nss_msg_header.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace gvxctl {

constexpr std::size_t kMaxFrameBytes = 4u << 20;  // what the gateway itself allows

// One whole frame, its head in host order.
struct Frame {
    NssMsgHeader head{};
    std::string body;  // all bytes behind the head

    std::uint16_t Type() const { return head.usiMsgType; }
    bool IsResponse() const { return head.usiMsgType >= kNssResponseOffset; }
    std::string Transaction() const;
    // Value of the body's first item of that tag; false when there is none or its length leads outside.
    bool Item(std::uint16_t tag, std::string& value) const;
};

// What a frame to send is made of. With a tag the body goes into one item of that tag, without one it stands as it is
// behind the head; with neither the frame is a bare head.
struct FrameSpec {
    std::uint16_t type = 0;
    std::uint32_t seq = 0;
    std::uint32_t trace = 0;
    std::uint32_t code = 0;
    std::string transaction;  // at most 63 characters
    std::uint16_t tag = NSS_TAG_INVALID;
    std::string body;
};

// The frame's bytes as they go on the wire; empty when it cannot be built.
std::string EncodeFrame(const FrameSpec& spec);

// A response to that request, with its numbers repeated.
FrameSpec ResponseTo(const Frame& request, std::uint32_t code);

// Cuts a byte stream into frames by their length field. Holds at most one frame and one read more. One thread.
class FrameCutter {
public:
    enum class Result { NeedMore, Ready, Broken };

    explicit FrameCutter(std::size_t maxFrameBytes = kMaxFrameBytes) : m_max(maxFrameBytes) {}

    void Feed(const char* data, std::size_t length) { m_bytes.append(data, length); }
    // Broken is final: the stream has lost its framing, and error says how.
    Result Next(Frame& frame, std::string& error);

private:
    std::size_t m_max;
    std::string m_bytes;
};

}  // namespace gvxctl
