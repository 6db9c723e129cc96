#include "gvx_common/sdp/gvx_sip_sdp.h"

#include "base/zvs_error.h"
#include "sdp_test_support.h"
#include "support/recording_logger.h"

#include <gtest/gtest.h>

namespace {

struct Row {
    std::string text;  // with "|" for each end of line
    int result;
    std::string set;  // behind the address, which no row sets
    std::string log;
};

void Check(const Row& row, const std::string& end, int (CServiceSDP::*decode)(const std::string&, CStreamParam*)) {
    ScopedRecordingLogger log;
    CStreamParam param;
    CServiceSDP codec;
    EXPECT_EQ((codec.*decode)(Lines(row.text, end), &param), row.result) << row.text;
    EXPECT_EQ(param.m_strSessionID + Set(param), "0.0.0.0 " + row.set) << row.text;
    EXPECT_TRUE(row.log.empty() || log->Contains("", row.log) || log->Contains(row.log)) << row.text << log->Dump();
}

TEST(SipSdpDecode, LinesOfAnAnswer) {
    const std::string lineOf1023 = "t=" + std::string(1021, '0');
    const Row rows[] = {
        {"v=0|m=video 5000 RTP/AVP 98|a=rtpmap:98 H264/90000|m=audio 5002 RTP/AVP/TCP 8|a=rtpmap:8 PCMA/8000|", 0,
         "5000 5002 2 98 8", ""},
        {"M=video 5000 TCP/RTP/AVP 96|A=rtpmap:96 PS/90000|", 0, "5000 0 2 96 0", ""},
        {"mm  == video 5000 TCP x|", 0, "5000 0 2 0 0", ""},
        {"m=video 5000 RTP/AVP 98", 0, "0 0 0 0 0", ""},
        {"m=video 5000 RTP/AVP |m=video 7000 RTP/AVP/TCP 98|", 0, "5000 0 1 0 0", ""},
        {"m=application 5 TCP x|m=application 7 TCP x|m=audio 9 RTP/AVP 8|", 0, "7 7 2 0 0", ""},
        {"m=video 99999 RTP/AVP 98|m=audio -1 RTP/AVP 8|", 0, "99999 4294967295 1 0 0", ""},
        {"m=video 5000 RTP/AVP|", 1, "5000 0 0 0 0", "decode media - proto - end"},
        {"m=video|", 1, "0 0 0 0 0", "decode media - media - end"},
        {"m=video 5000 UDP x|", 1, "5000 0 0 0 0", "decode media - unsupported media protocol"},
        {"m=audio 9 RTP/AVP 8|m=text 5000 no more|a=rtpmap:97 PCMU/8000|", 0, "0 9 1 0 97",
         "unknow media - media[text]."},
        {"|x|", 0, "0 0 0 0 0", "decode line - this line is emtpy."},
        {"a=rtpmap:97 H265/90000|a=rtpmap:98|a= rtpmap:99 H264/1|a=rtpmap: H264/1|a=fmtp:96 H264|", 0, "0 0 0 0 0", ""},
        {"a=rtpmap:97 H264/1|a=rtpmap:8 PCMU/1|a=rtpmap:-2 PS/1|", 0, "0 0 0 4294967294 8", ""},
        {"o=- 1 2 IN IP4 h|t=0 0|t=|" + lineOf1023 + "|", 0, "0 0 0 0 0", ""},
        {lineOf1023 + "0|", 1, "0 0 0 0 0", "strncpy_s szData failed!"},
        {"o=- 1 2 IN IP4 h |", 1, "0 0 0 0 0", "decode originator - unicast address - end"},
        {"o=- 1 2 IN IP4|", 1, "0 0 0 0 0", "decode originator - addrtype - end"},
        {"o=-|m=video 1 TCP |", 1, "0 0 0 0 0", "decode originator - username - end"},
        {"m=video 1 TCP |o=|", 1, "1 0 2 0 0", "decode sdp - failure to decode line"},
        {"c=IN IP4|", 1, "0 0 0 0 0", "decode connection - addrtype - end"},
        {std::string("m=audio 5 TCP |\0m=video 6 TCP |", 31), 0, "0 5 2 0 0", ""},
        {"", 2, "0 0 0 0 0", "decode sdp - invalid param"},
    };
    for (const Row& row : rows) {
        Check(row, "\n", &CServiceSDP::DecodeSDP);
        Check(row, "\r\n", &CServiceSDP::DecodeSDP);
    }
}

TEST(SipSdpDecode, AddressesAreInNetworkOrderAndTheSessionIsKeptForAPeerThatConnects) {
    CServiceSDP codec;
    const std::string text = Lines("o=- 77 1 IN IP4 h|c=IN IP4 10.0.0.9|m=video 5 TCP |c=IN IP4 192.0.2.1 more|");
    for (const auto& [protocol, mode] : {std::pair<unsigned, unsigned>{RTP_OVER_TCP, 1}, {1, 1}, {2, 0}}) {
        CStreamParam param;
        param.m_nDstTransProtocol = protocol;
        param.m_nRecvStreamMode = mode;
        EXPECT_EQ(codec.DecodeSDP(text, &param), ZVS_SUCCEED);
        EXPECT_EQ(param.m_strSessionID, protocol == 2 && mode == 1 ? "77" : "");
        EXPECT_EQ(Set(param), "192.0.2.1 5 0 2 0 0");
    }
    CStreamParam waiting;
    waiting.m_nDstTransProtocol = RTP_OVER_TCP;
    waiting.m_nRecvStreamMode = 1;
    EXPECT_EQ(codec.DecodeSDP("o=- 77\n", &waiting), ZVS_FAIL);
    EXPECT_EQ(waiting.m_strSessionID, "77") << "kept before what follows it is looked at";
    EXPECT_EQ(codec.DecodeSDP(text, nullptr), ZVS_PARA_INVALID);
}

TEST(SipSdpDecode, TalkTakesTheBlockThatReceives) {
    const std::string word64(64, 'P');
    const Row rows[] = {
        {"v=0|m=audio 5000 RTP/AVP 8|a=rtpmap:8 PCMA/8000|a=sendonly|m=audio 6000 TCP/RTP/AVP 97|a=rtpmap:97 PCMU/8000|"
         "a=recvonly|",
         0, "0 6000 2 0 97", ""},
        {"m=audio 5000 RTP/AVP 8|a=rtpmap:8 PCMA/8000|a=x|t=0 0|m=audio 6000 RTP/AVP 8|a=sendonly|", 0, "0 5000 1 0 8",
         ""},
        {"m=video 5 RTP/AVP 9|a=rtpmap:98 H264/90000|", 0, "0 0 1 0 0", ""},
        {"m=audio 5 RTP/AVP 8|a=rtpmap:8 PCMA|c=IN IP4 0.0.0.0|a=rtpmap:97 PCMU/8000|", 0, "0 5 1 0 97", ""},
        {"m=audio 5 RTP/AVP 8|a=rtpmap:8 PCMA/8000", 0, "0 5 1 0 0", ""},
        {"m=audio 5 RTP/AVP 8|a=PCMA sendonly|", 1, "0 0 0 0 0", "decode sdp - failure to decode line"},
        {"m=audio 5 RTP/AVP 8|a=rtpmap:8 " + std::string(64, 'x') + "|", 0, "0 5 1 0 0", ""},
        {"m=audio 5 RTP/AVP 8|a=rtpmap:8 PCM" + word64 + "|", 1, "0 0 0 0 0", "decode sdp - failure to decode line"},
        {"m=audio 5 RTP/AVP 8|a=" + word64 + ":8 PCMA|", 1, "0 0 0 0 0", "decode sdp - failure to decode line"},
        {"m=audio 5 RTP/AVP 8||", 1, "0 0 0 0 0", "decode single media - this line is emtpy."},
        {"|v=0|", 1, "0 0 0 0 0", "decode sdp - this line is emtpy."},
        {"", 2, "0 0 0 0 0", "decode sdp - invalid param"},
    };
    for (const Row& row : rows) {
        Check(row, "\r\n", &CServiceSDP::DecodeT28181TalkSDP);
    }
    Check({"m=audio 5 RTP/AVP 8|a=rtpmap:8 PCMA/8000|", 0, "0 0 0 0 0", ""}, "\n", &CServiceSDP::DecodeT28181TalkSDP);
    int length = 7;
    unsigned int media = 0;
    CStreamParam param;
    EXPECT_EQ(CServiceSDP().DecodeSingleTalkMedia("", media, &param, length), ZVS_FAIL);
    EXPECT_EQ(CServiceSDP().DecodeSingleTalkMedia(Lines("m=audio 5 TCP |a=b|m=audio|"), media, &param, length), 0);
    EXPECT_EQ(length, 21);
    EXPECT_EQ(media, SDP_MEDIA_AUDIO);
}

}  // namespace
