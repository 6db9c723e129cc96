#include "gvxctl/rtp.h"

#include "gvxctl/rtp_receiver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>

namespace gvxctl {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct Parsed {
    bool good;
    RtpPacket packet;
    std::string reason;
};

Parsed Parse(const Bytes& bytes) {
    // A copy of exact size, so that a read beyond the end shows under a sanitizer.
    const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), exact.get());
    Parsed parsed{};
    const char* reason = "";
    parsed.good = ParseRtp(exact.get(), bytes.size(), parsed.packet, reason);
    parsed.reason = reason;
    return parsed;
}

TEST(Rtp, RefusesWhatLeadsOutside) {
    struct Row {
        const char* reason;
        Bytes bytes;
    };
    const Bytes head = {0x80, 99, 0, 1, 0, 0, 0, 2, 0, 0, 0, 0};
    const auto with = [&head](std::uint8_t first, const Bytes& rest) {
        Bytes bytes = head;
        bytes[0] = first;
        bytes.insert(bytes.end(), rest.begin(), rest.end());
        return bytes;
    };
    const Row rows[] = {
        {"shorter than an RTP head", Bytes(head.begin(), head.end() - 1)},
        {"shorter than an RTP head", {}},
        {"not RTP version 2", with(0x40, {1, 2, 3})},
        {"header beyond the packet", with(0x8F, {1, 2, 3})},
        {"header extension beyond the packet", with(0x90, {0, 0, 0})},
        {"header beyond the packet", with(0x90, {'T', 'V', 0xFF, 0xFF, 1, 2, 3, 4})},
        {"padding beyond the payload", with(0xA0, {1, 2, 3, 9})},
        {"padding beyond the payload", with(0xA0, {1, 2, 3, 0})},
    };
    for (const Row& row : rows) {
        const Parsed parsed = Parse(row.bytes);
        EXPECT_FALSE(parsed.good) << row.reason;
        EXPECT_EQ(parsed.reason, row.reason);
    }
}

TEST(Rtp, CountsLossOverTheWrap) {
    SequenceTracker order;
    using Verdict = SequenceTracker::Verdict;
    EXPECT_EQ(order.Take(65533), Verdict::First);
    EXPECT_EQ(order.Take(65534), Verdict::Next);
    EXPECT_EQ(order.Take(2), Verdict::AfterGap);
    EXPECT_EQ(order.Lost(), 3u);
    EXPECT_EQ(order.Take(65535), Verdict::Late);
    EXPECT_EQ(order.Take(2), Verdict::Late) << "a packet twice";
    EXPECT_EQ(order.Take(3), Verdict::Next);
    EXPECT_EQ(order.Take(30000), Verdict::AfterGap);
    EXPECT_EQ(order.Restarts(), 1u);
    EXPECT_EQ(order.Lost(), 3u) << "a restart is no loss";
    EXPECT_EQ(order.Late(), 2u);
    SequenceTracker wrapped;
    wrapped.Take(65535);
    EXPECT_EQ(wrapped.Take(1), Verdict::Next) << "the gateway leaves 0 out";
}

TEST(Receiver, ForeignBytesEndAnInterleavedStream) {
    RtpReceiver receiver;
    std::string error;
    ASSERT_TRUE(receiver.StartTcp(Endpoint{}, RecordFiles{}, error)) << error;
    gvx::UniqueFd peer = ConnectTcp(Endpoint{"127.0.0.1", receiver.VideoPort()}, 5000, error);
    ASSERT_TRUE(peer.Valid() && SendAll(peer.Get(), "HTTP/1.1", 8, 5000)) << error;
    const std::atomic<bool> stop{false};
    EXPECT_FALSE(receiver.WaitForFrames(1, 0, 20000, stop));
    EXPECT_EQ(receiver.Stats().error, "the interleaved stream has lost its framing");
}

}  // namespace
}  // namespace gvxctl
