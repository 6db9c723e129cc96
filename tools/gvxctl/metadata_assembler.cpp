#include "gvxctl/metadata_assembler.h"

namespace gvxctl {
namespace {

constexpr std::uint8_t kMagic = 0xAA;  // first payload byte of every metadata packet
constexpr std::size_t kMagicBytes = 1;

bool HasMagic(const RtpPacket& packet) {
    return packet.payloadLength >= kMagicBytes && packet.payload[0] == kMagic;
}

}  // namespace

void MetadataAssembler::Take(const RtpPacket& packet) {
    ++m_stats.packets;
    m_stats.bytes += packet.payloadLength;
    const SequenceTracker::Verdict verdict = m_order.Take(packet.seq);
    if (verdict == SequenceTracker::Verdict::Late) {
        return;
    }
    const bool gap = HasGap(packet, verdict);
    m_lastSeq = packet.seq;
    if (gap) {
        AfterGap();
    }
    if (!HasMagic(packet)) {
        ++m_stats.badPayloads;
        Abandon("packet " + std::to_string(packet.seq) + " is of no known form");
    } else if (m_pending || Begin(packet)) {
        Append(packet);
    }
    if (packet.marker) {
        Complete();
    }
}

// Number 0 is left out between two messages when one ends on 65535, but never within a message.
bool MetadataAssembler::HasGap(const RtpPacket& packet, SequenceTracker::Verdict verdict) {
    if (verdict == SequenceTracker::Verdict::AfterGap) {
        return true;
    }
    const bool follows = packet.seq == static_cast<std::uint16_t>(m_lastSeq + 1);
    if ((m_pending || m_skipping) && !follows) {
        ++m_stats.lost;
        return true;
    }
    return m_pending && packet.timestamp != m_timestamp;
}

// Whether the next packet goes on with the old message or begins one is told by its first bytes.
void MetadataAssembler::AfterGap() {
    if (m_pending) {
        Abandon(std::to_string(m_bytes.size()) + " of " + std::to_string(m_wanted) +
                " bytes came before packets were lost");
    }
}

bool MetadataAssembler::Begin(const RtpPacket& packet) {
    std::size_t wanted = 0;
    if (!ReadMessageHead(packet.payload + kMagicBytes, packet.payloadLength - kMagicBytes, wanted)) {
        if (!m_skipping) {
            Abandon("its first packet is missing");
        }
        return false;
    }
    m_skipping = false;
    if (wanted > kMaxMessageBytes) {
        Abandon("it has " + std::to_string(wanted) + " bytes, " + std::to_string(kMaxMessageBytes) + " are the most");
        return false;
    }
    m_pending = true;
    m_wanted = wanted;
    m_timestamp = packet.timestamp;
    return true;
}

void MetadataAssembler::Append(const RtpPacket& packet) {
    const std::size_t count = packet.payloadLength - kMagicBytes;
    if (count > m_wanted - m_bytes.size()) {
        Abandon("it goes on beyond the " + std::to_string(m_wanted) + " bytes of its head");
        return;
    }
    ++m_messagePackets;
    m_bytes.append(reinterpret_cast<const char*>(packet.payload) + kMagicBytes, count);
}

// A marked packet has come: whatever began is over.
void MetadataAssembler::Complete() {
    if (m_pending && m_bytes.size() < m_wanted) {
        Abandon("it ends after " + std::to_string(m_bytes.size()) + " of " + std::to_string(m_wanted) + " bytes");
    } else if (m_pending) {
        Message message;
        std::string reason;
        message.timestamp = m_timestamp;
        message.packets = m_messagePackets;
        message.bytes = m_bytes.size();
        if (ParseMetadata(reinterpret_cast<const std::uint8_t*>(m_bytes.data()), m_bytes.size(), message.tree,
                          reason)) {
            ++m_stats.messages;
            m_onMessage(message);
        } else {
            ++m_stats.broken;
            m_onFault("a metadata message is broken: " + reason);
        }
    }
    Forget();
    m_skipping = false;
}

// Gives the message in hand up, once: what follows up to its end is left out without a word.
void MetadataAssembler::Abandon(const std::string& why) {
    if (m_pending || !m_skipping) {
        ++m_stats.incomplete;
        m_onFault("a metadata message is incomplete: " + why);
    }
    Forget();
    m_skipping = true;
}

void MetadataAssembler::Forget() {
    constexpr std::size_t kKept = 1u << 20;
    m_pending = false;
    m_messagePackets = 0;
    m_wanted = 0;
    m_bytes.clear();
    if (m_bytes.capacity() > kKept) {
        m_bytes.shrink_to_fit();
    }
}

void MetadataAssembler::Finish() {
    if (m_pending) {
        Abandon("the stream ends after " + std::to_string(m_bytes.size()) + " of " + std::to_string(m_wanted) +
                " bytes");
    }
}

AssemblerStats MetadataAssembler::Stats() const {
    AssemblerStats stats = m_stats;
    stats.lost += m_order.Lost();
    stats.late = m_order.Late();
    stats.restarts = m_order.Restarts();
    return stats;
}

}  // namespace gvxctl
