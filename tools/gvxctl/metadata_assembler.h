#pragma once

#include "gvxctl/rtp.h"
#include "gvxctl/tlv_tree.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace gvxctl {

struct AssemblerStats {
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0;        // payloads
    std::uint64_t messages = 0;     // whole and well formed
    std::uint64_t incomplete = 0;   // of which something was missing
    std::uint64_t broken = 0;       // whole, and of no known form
    std::uint64_t badPayloads = 0;  // packets without the magic byte
    std::uint64_t lost = 0;         // packets missing in the numbering
    std::uint64_t late = 0;         // packets behind those that came already, or that came twice; not used
    std::uint64_t restarts = 0;     // jumps of the numbering by more than 3000
};

// Joins the packets of metadata (payload type 107) to messages. All packets of a message have one timestamp, and the
// last is marked; a message tells its own length, so that loss is noticed by the numbering and by the length. Holds one
// message of at most 64 MiB. One thread.
class MetadataAssembler {
public:
    static constexpr std::size_t kMaxMessageBytes = 64u << 20;

    struct Message {
        std::uint32_t timestamp = 0;
        std::uint64_t packets = 0;
        std::size_t bytes = 0;
        TlvItem tree;  // valid during the call
    };
    using OnMessage = std::function<void(const Message&)>;
    using OnFault = std::function<void(const std::string&)>;  // one sentence

    MetadataAssembler(OnMessage onMessage, OnFault onFault)
        : m_onMessage(std::move(onMessage)), m_onFault(std::move(onFault)) {}

    void Take(const RtpPacket& packet);
    // The stream is over: a message that has begun is incomplete.
    void Finish();

    AssemblerStats Stats() const;

private:
    bool HasGap(const RtpPacket& packet, SequenceTracker::Verdict verdict);
    void AfterGap();
    bool Begin(const RtpPacket& packet);
    void Append(const RtpPacket& packet);
    void Complete();
    void Abandon(const std::string& why);
    void Forget();

    OnMessage m_onMessage;
    OnFault m_onFault;
    SequenceTracker m_order;
    AssemblerStats m_stats;
    std::uint16_t m_lastSeq = 0;
    bool m_pending = false;   // a message has begun
    bool m_skipping = false;  // what comes up to the next mark belongs to a message that is given up
    std::uint32_t m_timestamp = 0;
    std::uint64_t m_messagePackets = 0;
    std::size_t m_wanted = 0;  // bytes of the message by its head
    std::string m_bytes;
};

}  // namespace gvxctl
