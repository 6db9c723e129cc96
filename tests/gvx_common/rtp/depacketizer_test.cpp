#include "gvx_common/rtp/audio_depacketizer.h"
#include "gvx_common/rtp/h264_depacketizer.h"
#include "gvx_common/rtp/h265_depacketizer.h"

#include "gvx_common/rtp/rtp_stream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
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

// A word is a packet: its payload in hexadecimal, "*" for the marker, "@" and its time where that is not 1, "+" and how
// many are lost before it.
std::vector<Given> Packets(const std::string& text) {
    std::istringstream words(text);
    std::vector<Given> packets;
    for (std::string word; words >> word;) {
        Given given{{}, false, 1};
        const std::size_t end = std::min(word.find_first_of("*@+"), word.size());
        for (std::size_t at = 0; at < end; at += 2) {
            given.payload.push_back(static_cast<std::uint8_t>(std::stoul(word.substr(at, 2), nullptr, 16)));
        }
        for (std::size_t at = end; at < word.size(); ++at) {
            if (word[at] == '*') {
                given.marker = true;
            } else {
                std::uint32_t& number = word[at] == '@' ? given.time : given.lostBefore;
                number = static_cast<std::uint32_t>(word[++at] - '0');
            }
        }
        packets.push_back(given);
    }
    return packets;
}

struct Row {
    const char* situation;
    std::string packets;
    RtpDamage damage;   // of the access unit that comes out last
    const char* units;  // its NAL units
};

template <typename Depacketizer>
void ExpectRows(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.situation);
        rtp_stream::Sink sink;
        Depacketizer depacketizer(sink, gvx::AccessUnitEnd::Marker, 60);
        const auto taken = Depacketize(depacketizer, sink, Packets(row.packets));
        ASSERT_FALSE(taken.empty());
        EXPECT_STREQ(gvx::RtpDamageName(taken.back().unit.damage), gvx::RtpDamageName(row.damage));
        Bytes expected;
        for (const Given& unit : Packets(row.units)) {
            expected.insert(expected.end(), {0, 0, 0, 1});
            expected.insert(expected.end(), unit.payload.begin(), unit.payload.end());
        }
        EXPECT_EQ(taken.back().bytes, expected);
    }
}

TEST(H264Depacketizer, JoinsWhatRfc6184AllowsAndNamesTheRest) {
    std::string tooLong;
    for (int i = 0; i < 80; ++i) {
        tooLong += "41";
    }
    ExpectRows<gvx::H264Depacketizer>({
        {"single unit", "419A01*", RtpDamage::None, "419A01"},
        {"parameter sets with marks of their own", "6701* 6801* 6588*", RtpDamage::None, "6701 6801 6588"},
        {"STAP-A", "78000267010003419A01*", RtpDamage::None, "6701 419A01"},
        {"FU-A", "5C819A 5C0105 5C41*", RtpDamage::None, "419A05"},
        {"no marker, other time", "419A01 419A01@2", RtpDamage::None, "419A01"},
        {"STAP-A with a size beyond it", "7800026701000941*", RtpDamage::Malformed, "6701"},
        {"STAP-A within STAP-A", "78000178*", RtpDamage::ForbiddenType, ""},
        {"FU-A without start", "5C4105*", RtpDamage::MissingStart, ""},
        {"FU-A without end", "5C819A*", RtpDamage::MissingEnd, ""},
        {"FU-A broken off by another unit", "5C819A 419A01*", RtpDamage::MissingEnd, "419A01"},
        {"FU-A that changes its type", "5C819A 5C4501*", RtpDamage::MissingEnd, ""},
        {"FU-A with a hole", "5C819A 5C4101*+1", RtpDamage::LostPacket, ""},
        {"FU-A without FU header", "5C*", RtpDamage::Malformed, ""},
        {"FU-B of the interleaved mode", "5D81000001*", RtpDamage::ForbiddenType, ""},
        {"undefined type 30", "7E01*", RtpDamage::ForbiddenType, ""},
        {"longer than allowed", "419A01 " + tooLong + "*", RtpDamage::TooLong, "419A01"},
        {"begins in the midst of a picture", "410101*", RtpDamage::LostPacket, "410101"},
    });
}

TEST(H265Depacketizer, JoinsWhatRfc7798AllowsAndNamesTheRest) {
    ExpectRows<gvx::H265Depacketizer>({
        {"single unit", "02018009*", RtpDamage::None, "02018009"},
        {"AP", "60010003400105000402018009*", RtpDamage::None, "400105 02018009"},
        {"FU of TID 2", "62038180 62034109*", RtpDamage::None, "02038009"},
        {"AP with a size beyond it", "600100094001*", RtpDamage::Malformed, ""},
        {"FU without start", "62014109*", RtpDamage::MissingStart, ""},
        {"FU without end", "62018180*", RtpDamage::MissingEnd, ""},
        {"one byte", "62*", RtpDamage::Malformed, ""},
        {"PACI", "6401000000*", RtpDamage::ForbiddenType, ""},
    });
}

// Which of two access units a gap between them belongs to.
TEST(H264Depacketizer, AGapBetweenAccessUnitsDamagesThatWhichMissesPackets) {
    const auto damages = [](const std::string& packets) {
        rtp_stream::Sink sink;
        gvx::H264Depacketizer depacketizer(sink);
        std::string text;
        for (const auto& taken : Depacketize(depacketizer, sink, Packets("419A01* 419A01*@2 " + packets))) {
            text += (taken.unit.IsDamaged() ? 'd' : '-') + std::to_string(taken.unit.lostPackets);
        }
        return text;
    };
    EXPECT_EQ(damages("419A01@3 419A01*@4+1"), "-0-0d1-0") << "the marker of the former";
    EXPECT_EQ(damages("419A01*@4+3"), "-0-0-3") << "whole access units, as this one begins like those before";
    EXPECT_EQ(damages("6801@4+1 6588*@4"), "-0-0d1") << "perhaps what stood before it";
    EXPECT_EQ(damages("4101*@4+1"), "-0-0d1") << "its first slice";
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
