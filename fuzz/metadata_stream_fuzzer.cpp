// Metadata as gvxctl receives it: an interleaved stream of RTP packets, joined to messages and taken apart. A message
// that is found whole must have come in packets that follow each other, with one timestamp and one mark, and nothing of
// its tree may lie outside of it.

#include "gvxctl/metadata_assembler.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <string>

namespace {

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

struct Seen {
    std::uint16_t seq;
    std::uint32_t timestamp;
    bool marker;
};

// Bytes of the leaves and heads below an item.
std::size_t Weigh(const gvxctl::TlvItem& item, int depth) {
    Require(depth <= 3);
    std::size_t bytes = gvxctl::kTlvHeadBytes;
    for (const gvxctl::TlvItem& child : item.items) {
        Require(child.value >= item.value && child.value + child.length <= item.value + item.length);
        bytes += Weigh(child, depth + 1);
    }
    if (item.items.empty()) {
        Require(!gvxctl::DescribeValue(item).empty() && !gvxctl::TlvTypeName(item.type).empty());
        bytes += item.length;
    }
    return bytes;
}

class Checker {
public:
    void Take(const gvxctl::RtpPacket& packet) {
        const std::uint64_t late = m_assembler.Stats().late;
        m_seen.push_back({packet.seq, packet.timestamp, packet.marker});
        m_assembler.Take(packet);
        if (m_assembler.Stats().late != late) {
            m_seen.pop_back();
        }
    }
    void Finish() {
        m_assembler.Finish();
        const gvxctl::AssemblerStats stats = m_assembler.Stats();
        Require(stats.messages == m_messages && stats.messages + stats.broken <= stats.packets);
        Require(stats.incomplete + stats.broken == m_faults);
        Require(m_messageBytes <= stats.bytes);
    }

private:
    void TakeMessage(const gvxctl::MetadataAssembler::Message& message) {
        ++m_messages;
        m_messageBytes += message.bytes;
        Require(message.packets >= 1 && message.packets <= m_seen.size());
        for (std::size_t i = 0; i < message.packets; ++i) {
            const Seen& packet = m_seen[m_seen.size() - message.packets + i];
            const Seen& first = m_seen[m_seen.size() - message.packets];
            Require(packet.seq == static_cast<std::uint16_t>(first.seq + i));
            Require(packet.timestamp == message.timestamp && packet.marker == (i + 1 == message.packets));
        }
        Require(Weigh(message.tree, 1) == message.bytes);
        Require(gvxctl::MetadataKindName(gvxctl::KindOf(message.tree)) != nullptr);
    }

    std::deque<Seen> m_seen;
    std::uint64_t m_messages = 0;
    std::uint64_t m_messageBytes = 0;
    std::uint64_t m_faults = 0;
    gvxctl::MetadataAssembler m_assembler{
        [this](const gvxctl::MetadataAssembler::Message& message) { TakeMessage(message); },
        [this](const std::string& fault) {
            Require(!fault.empty());
            ++m_faults;
        }};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    gvxctl::InterleaveCutter cutter;
    Checker checker;
    cutter.Feed(data, size);
    std::uint8_t channel = 0;
    const std::uint8_t* bytes = nullptr;
    std::size_t length = 0;
    while (cutter.Next(channel, bytes, length) == gvxctl::InterleaveCutter::Result::Ready) {
        gvxctl::RtpPacket packet;
        const char* reason = nullptr;
        if (gvxctl::ParseRtp(bytes, length, packet, reason)) {
            checker.Take(packet);
        }
    }
    checker.Finish();
    return 0;
}
