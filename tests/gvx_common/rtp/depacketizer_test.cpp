#include "gvx_common/rtp/audio_depacketizer.h"
#include "gvx_common/rtp/h264_depacketizer.h"
#include "gvx_common/rtp/h265_depacketizer.h"

#include "gvx_common/rtp/rtp_stream.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using gvx::RtpDamage;
using rtp_stream::Bytes;

struct Given {
    Bytes payload;
    bool marker;
    std::uint32_t time;
    std::uint32_t lostBefore = 0;
};

std::vector<rtp_stream::Taken> Depacketize(gvx::RtpDepacketizer& depacketizer, rtp_stream::Sink& sink,
                                           const std::vector<Given>& packets) {
    for (const Given& given : packets) {
        // A copy of just its size, so that a checker sees any read behind it.
        const Bytes exact(given.payload);
        gvx::RtpView view;
        view.payload = exact.data();
        view.payloadSize = exact.size();
        view.timestamp = given.time;
        view.marker = given.marker;
        depacketizer.OnPacket(view, given.lostBefore, 0);
    }
    depacketizer.Reset();
    return std::move(sink.taken);
}

Bytes Units(std::initializer_list<Bytes> units) {
    Bytes all;
    for (const Bytes& unit : units) {
        all.insert(all.end(), {0, 0, 0, 1});
        all.insert(all.end(), unit.begin(), unit.end());
    }
    return all;
}

struct FaultRow {
    const char* situation;
    std::vector<Given> packets;
    RtpDamage damage;  // of the access unit that comes out last
    Bytes bytes;
};

template <typename Depacketizer>
void ExpectRows(const std::vector<FaultRow>& rows) {
    for (const FaultRow& row : rows) {
        SCOPED_TRACE(row.situation);
        rtp_stream::Sink sink;
        Depacketizer depacketizer(sink, gvx::AccessUnitEnd::Marker, 60);
        const auto taken = Depacketize(depacketizer, sink, row.packets);
        ASSERT_FALSE(taken.empty());
        EXPECT_STREQ(gvx::RtpDamageName(taken.back().unit.damage), gvx::RtpDamageName(row.damage));
        EXPECT_EQ(taken.back().bytes, row.bytes);
    }
}

TEST(H264Depacketizer, JoinsWhatRfc6184AllowsAndNamesTheRest) {
    const Bytes slice{0x41, 0x9A, 1};
    ExpectRows<gvx::H264Depacketizer>({
        {"single unit", {{slice, true, 1}}, RtpDamage::None, Units({slice})},
        {"parameter sets with marks of their own",
         {{{0x67, 1}, true, 1}, {{0x68, 1}, true, 1}, {{0x65, 0x88}, true, 1}},
         RtpDamage::None,
         Units({{0x67, 1}, {0x68, 1}, {0x65, 0x88}})},
        {"STAP-A", {{{0x78, 0, 2, 0x67, 1, 0, 3, 0x41, 0x9A, 1}, true, 1}}, RtpDamage::None, Units({{0x67, 1}, slice})},
        {"FU-A",
         {{{0x5C, 0x81, 0x9A}, false, 1}, {{0x5C, 1, 5}, false, 1}, {{0x5C, 0x41}, true, 1}},
         RtpDamage::None,
         Units({{0x41, 0x9A, 5}})},
        {"no marker, other time", {{slice, false, 1}, {slice, false, 2}}, RtpDamage::None, Units({slice})},
        {"STAP-A with a size beyond it",
         {{{0x78, 0, 2, 0x67, 1, 0, 9, 0x41}, true, 1}},
         RtpDamage::Malformed,
         Units({{0x67, 1}})},
        {"STAP-A within STAP-A", {{{0x78, 0, 1, 0x78}, true, 1}}, RtpDamage::ForbiddenType, {}},
        {"FU-A without start", {{{0x5C, 0x41, 5}, true, 1}}, RtpDamage::MissingStart, {}},
        {"FU-A without end", {{{0x5C, 0x81, 0x9A}, true, 1}}, RtpDamage::MissingEnd, {}},
        {"FU-A broken off by another unit",
         {{{0x5C, 0x81, 0x9A}, false, 1}, {slice, true, 1}},
         RtpDamage::MissingEnd,
         Units({slice})},
        {"FU-A that changes its type",
         {{{0x5C, 0x81, 0x9A}, false, 1}, {{0x5C, 0x45, 1}, true, 1}},
         RtpDamage::MissingEnd,
         {}},
        {"FU-A with a hole",
         {{{0x5C, 0x81, 0x9A}, false, 1}, {{0x5C, 0x41, 1}, true, 1, 1}},
         RtpDamage::LostPacket,
         {}},
        {"FU-A without FU header", {{{0x5C}, true, 1}}, RtpDamage::Malformed, {}},
        {"FU-B of the interleaved mode", {{{0x5D, 0x81, 0, 0, 1}, true, 1}}, RtpDamage::ForbiddenType, {}},
        {"undefined type 30", {{{0x7E, 1}, true, 1}}, RtpDamage::ForbiddenType, {}},
        {"longer than allowed", {{slice, false, 1}, {Bytes(80, 0x41), true, 1}}, RtpDamage::TooLong, Units({slice})},
        {"begins in the midst of a picture",
         {{{0x41, 0x01, 1}, true, 1}},
         RtpDamage::LostPacket,
         Units({{0x41, 0x01, 1}})},
    });
}

TEST(H265Depacketizer, JoinsWhatRfc7798AllowsAndNamesTheRest) {
    const Bytes slice{2, 1, 0x80, 9};
    ExpectRows<gvx::H265Depacketizer>({
        {"single unit", {{slice, true, 1}}, RtpDamage::None, Units({slice})},
        {"AP",
         {{{0x60, 1, 0, 3, 0x40, 1, 5, 0, 4, 2, 1, 0x80, 9}, true, 1}},
         RtpDamage::None,
         Units({{0x40, 1, 5}, slice})},
        {"FU of TID 2",
         {{{0x62, 3, 0x81, 0x80}, false, 1}, {{0x62, 3, 0x41, 9}, true, 1}},
         RtpDamage::None,
         Units({{2, 3, 0x80, 9}})},
        {"AP with a size beyond it", {{{0x60, 1, 0, 9, 0x40, 1}, true, 1}}, RtpDamage::Malformed, {}},
        {"FU without start", {{{0x62, 1, 0x41, 9}, true, 1}}, RtpDamage::MissingStart, {}},
        {"FU without end", {{{0x62, 1, 0x81, 0x80}, true, 1}}, RtpDamage::MissingEnd, {}},
        {"one byte", {{{0x62}, true, 1}}, RtpDamage::Malformed, {}},
        {"PACI", {{{0x64, 1, 0, 0, 0}, true, 1}}, RtpDamage::ForbiddenType, {}},
    });
}

// Which of two access units a gap between them belongs to.
TEST(H264Depacketizer, AGapBetweenAccessUnitsDamagesThatWhichMissesPackets) {
    const Bytes slice{0x41, 0x9A, 1};
    const auto damages = [&](const std::vector<Given>& packets) {
        rtp_stream::Sink sink;
        gvx::H264Depacketizer depacketizer(sink);
        std::vector<Given> all{{slice, true, 1}, {slice, true, 2}};
        all.insert(all.end(), packets.begin(), packets.end());
        std::string text;
        for (const auto& taken : Depacketize(depacketizer, sink, all)) {
            text += taken.unit.IsDamaged() ? 'd' : '-';
            text += std::to_string(taken.unit.lostPackets);
        }
        return text;
    };
    EXPECT_EQ(damages({{slice, false, 3}, {slice, true, 4, 1}}), "-0-0d1-0") << "the marker of the former";
    EXPECT_EQ(damages({{slice, true, 4, 3}}), "-0-0-3") << "whole access units, as this one begins like those before";
    EXPECT_EQ(damages({{{0x68, 1}, false, 4, 1}, {{0x65, 0x88}, true, 4}}), "-0-0d1") << "perhaps what stood before it";
    EXPECT_EQ(damages({{{0x41, 0x01}, true, 4, 1}}), "-0-0d1") << "its first slice";
}

TEST(AacDepacketizer, SplitsJoinsAndRefuses) {
    const auto run = [](const std::vector<Given>& packets) {
        rtp_stream::Sink sink;
        gvx::AacDepacketizer depacketizer(sink);
        std::string text;
        for (const auto& taken : Depacketize(depacketizer, sink, packets)) {
            text += std::to_string(taken.unit.rtpTime) + ":" + std::string(taken.bytes.begin(), taken.bytes.end());
            text += taken.unit.IsDamaged() ? std::string("!") + gvx::RtpDamageName(taken.unit.damage) + " " : " ";
        }
        return text;
    };
    const auto heads = [](std::initializer_list<unsigned int> sizes, const std::string& data, unsigned int index = 0) {
        Bytes bytes{0, static_cast<std::uint8_t>(16 * sizes.size())};
        for (const unsigned int size : sizes) {
            bytes.push_back(static_cast<std::uint8_t>(size >> 5));
            bytes.push_back(static_cast<std::uint8_t>(size << 3 | index));
        }
        bytes.insert(bytes.end(), data.begin(), data.end());
        return bytes;
    };
    EXPECT_EQ(run({{heads({3, 2}, "abcde"), true, 100}}), "100:abc 1124:de ");
    EXPECT_EQ(run({{heads({5}, "abc"), false, 1}, {heads({5}, "de"), true, 1}}), "1:abcde ");
    EXPECT_EQ(run({{heads({5}, "abc"), false, 1}, {heads({5}, "e"), true, 1, 1}, {heads({1}, "f"), true, 9}}),
              "1:!lost packet 1:!missing start 9:f ");
    EXPECT_EQ(run({{heads({5}, "abc"), false, 1}, {heads({1}, "f"), true, 9}}), "1:!missing end 9:f ");
    EXPECT_EQ(run({{heads({2}, "ab", 1), true, 1}}), "1:!forbidden type ");
    EXPECT_EQ(run({{heads({2, 9}, "abc"), true, 1}, {{0, 16}, true, 2}, {{0}, true, 3}}),
              "1:ab 1025:!malformed 2:!malformed 3:!malformed ");
}

}  // namespace
