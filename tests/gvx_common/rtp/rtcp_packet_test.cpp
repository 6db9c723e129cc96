#include "gvx_common/rtp/rtcp_packet.h"

#include "gvx_common/rtp/rtp_interleave.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

namespace {

using Bytes = std::vector<std::uint8_t>;

// Writes down what it is told.
class Listener : public gvx::IRtcpVisitor {
public:
    void OnSenderReport(const gvx::RtcpSenderInfo& info) override {
        Say("sr " + std::to_string(info.ssrc) + " " + std::to_string(info.ntpTime >> 32) + " " +
            std::to_string(info.rtpTime) + " " + std::to_string(info.packets) + " " + std::to_string(info.octets));
    }
    void OnReportBlock(std::uint32_t reporter, const gvx::RtcpReportBlock& block) override {
        Say("block " + std::to_string(reporter) + " " + std::to_string(block.ssrc) + " " +
            std::to_string(block.fractionLost) + " " + std::to_string(block.cumulativeLost) + " " +
            std::to_string(block.jitter));
    }
    void OnCname(std::uint32_t, const char* name, std::size_t size) override {
        Say("cname " + std::string(name, size));
    }
    void OnBye(std::uint32_t ssrc) override { Say("bye " + std::to_string(ssrc)); }
    void OnPictureLoss(std::uint32_t, std::uint32_t media) override { Say("pli " + std::to_string(media)); }
    std::string said;

private:
    void Say(const std::string& text) { said += text + "|"; }
};

std::string Read(const Bytes& packet) {
    Listener listener;
    return gvx::ParseRtcp(packet.data(), packet.size(), listener) ? listener.said : "refused" + listener.said;
}

// Bytes written out by hand after RFC 3550, section 6, and RFC 4585, section 6.1.
const Bytes kSenderReport{0x81, 200, 0, 12, 0, 0, 0, 1,  0, 0, 0, 2, 0, 0, 0,  0,    0,    0,
                          0,    3,   0, 0,  0, 4, 0, 0,  0, 5, 0, 0, 0, 7, 64, 0xFF, 0xFF, 0xFE,
                          0,    0,   0, 9,  0, 0, 0, 11, 0, 0, 0, 0, 0, 0, 0,  0};
const Bytes kName{0x81, 202, 0, 3, 0, 0, 0, 1, 1, 4, 'a', 'b', 'c', 'd', 0, 0};
const Bytes kBye{0x81, 203, 0, 1, 0, 0, 0, 1};
const Bytes kPictureLoss{0x81, 206, 0, 2, 0, 0, 0, 1, 0, 0, 0, 7};

Bytes Join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

TEST(Rtcp, ReadsAndBuildsCompoundPackets) {
    const Bytes whole = Join({kSenderReport, kName, kPictureLoss, kBye});
    const char* const said = "sr 1 2 3 4 5|block 1 7 64 -2 11|cname abcd|pli 7|bye 1|";
    EXPECT_EQ(Read(whole), said);
    gvx::RtcpSenderInfo info;
    info.ssrc = 1;
    info.ntpTime = std::uint64_t{2} << 32;
    info.rtpTime = 3;
    info.packets = 4;
    info.octets = 5;
    gvx::RtcpReportBlock block;
    block.ssrc = 7;
    block.fractionLost = 64;
    block.cumulativeLost = -2;
    block.highestSeq = 9;
    block.jitter = 11;
    gvx::RtcpBuilder builder;
    EXPECT_TRUE(builder.AddSenderReport(info, &block) && builder.AddCname(1, "abcd") && builder.AddPictureLoss(1, 7) &&
                builder.AddBye(1));
    EXPECT_EQ(Bytes(builder.Data(), builder.Data() + builder.Size()), whole);
    EXPECT_FALSE(builder.AddCname(1, std::string(256, 'x')));
    while (builder.AddCname(1, std::string(255, 'x'))) {
    }
    EXPECT_LE(builder.Size(), gvx::RtcpBuilder::kRoom);
    EXPECT_EQ(gvx::WallUsOfNtp(gvx::NtpOfWallUs(1767323045123457)), 1767323045123457);
}

TEST(Rtcp, RefusesWhatContradictsItselfBeforeItTellsAnything) {
    Bytes longer = Join({kSenderReport, kBye});
    longer[longer.size() - 5] = 2;
    Bytes blocks = kSenderReport;
    blocks[0] = 0x82;
    Bytes version = Join({kSenderReport, kBye});
    version[kSenderReport.size()] = 0x41;
    Bytes padding = Join({kSenderReport, kBye});
    padding[0] |= 0x20;
    for (const Bytes& packet : {Bytes{}, Bytes{0x80, 201, 0}, kName, kBye, longer, blocks, version, padding,
                                Join({kSenderReport, Bytes{0x82, 203, 0, 1, 0, 0, 0, 1}})}) {
        EXPECT_EQ(Read(packet), "refused");
    }
    EXPECT_EQ(Read(kPictureLoss), "pli 7|") << "feedback alone (RFC 5506)";
    EXPECT_EQ(Read(Join({kPictureLoss, Bytes{0xA0, 250, 0, 1, 0, 0, 0, 4}})), "pli 7|") << "unknown type, padded";
}

TEST(RtpInterleave, TellsPacketsAndMessagesApartHoweverTheyAreCut) {
    // The body of the message begins with a "$" that is no packet's.
    const std::string text = std::string("$\0\0\3abc", 7) +
                             "\r\nRTSP/1.0 200 OK\r\nCSeq: 2\r\nContent-Length: 5\r\n\r\n$...." +
                             std::string("$\1\0\1d", 5);
    for (std::size_t cut = 1; cut < text.size(); ++cut) {
        std::string heard;
        gvx::RtpInterleaveReader reader(
            [&](std::uint8_t channel, const std::uint8_t* data, std::size_t size) {
                heard += std::to_string(channel) + std::string(data, data + size) + "|";
            },
            [&](const char* message, std::size_t size) { heard += std::string(message + size - 5, 5) + "|"; });
        ASSERT_EQ(reader.Feed(text.data(), cut), 0);
        ASSERT_EQ(reader.Feed(text.data() + cut, text.size() - cut), 0);
        ASSERT_EQ(heard, "0abc|$....|1d|");
    }
    const auto feed = [](const std::string& bytes) {
        gvx::RtpInterleaveReader reader([](std::uint8_t, const std::uint8_t*, std::size_t) {}, nullptr);
        return reader.Feed(bytes.data(), bytes.size());
    };
    EXPECT_EQ(feed(std::string(1, '\x80')), -1);
    EXPECT_EQ(feed("RTSP/1.0 200 OK\r\n" + std::string(70000, 'x')), -1);
    EXPECT_EQ(feed("RTSP/1.0 200 OK\r\nContent-Length: 99999999999\r\n\r\n"), -1);
    EXPECT_EQ(feed("RTSP/1.0 200 OK\r\nContent-Length: -1\r\n\r\n"), -1);

    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    std::size_t packets = 0;
    gvx::RtpInterleaveReader reader([&](std::uint8_t, const std::uint8_t*, std::size_t size) { packets += size == 3; },
                                    nullptr);
    EXPECT_EQ(reader.Receive(pair[0]), 0);
    ASSERT_EQ(::send(pair[1], text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    EXPECT_EQ(reader.Receive(pair[0]), 0);
    EXPECT_EQ(packets, 1u);
    ::close(pair[1]);
    EXPECT_EQ(reader.Receive(pair[0]), 1);
    ::close(pair[0]);
}

}  // namespace
