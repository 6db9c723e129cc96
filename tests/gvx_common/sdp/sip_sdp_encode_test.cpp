#include "gvx_common/sdp/gvx_sip_sdp.h"

#include "base/zvs_error.h"
#include "sdp_test_support.h"
#include "support/recording_logger.h"
#include "support/settings_folder.h"
#include "support/test_clock.h"

#include <fstream>
#include <map>
#include <set>

#include <gtest/gtest.h>

namespace {

class SipSdpEncodeTest : public testing::Test {
protected:
    void SetUp() override { Configure(""); }
    void Configure(const std::string& settings) {
        m_folder.WriteConf(settings);
        ASSERT_EQ(0, GvxConfigMgr()->Init());
    }

    SettingsFolder m_folder;
    ScopedRecordingLogger m_log;
    ScopedTestClock m_clock;
    CServiceSDP m_codec;
};

struct Golden {
    std::string text;
    std::string set;  // what a reader takes from it, or "refused"
};

std::map<std::string, Golden> GoldenTexts() {
    std::map<std::string, Golden> texts;
    std::ifstream file(SDP_GOLDEN_FILE);
    std::string name;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("== ", 0) == 0) {
            name = line.substr(3);
        } else if (line.rfind("-> ", 0) == 0) {
            texts[name].set = line.substr(3);
        } else if (!name.empty()) {
            texts[name].text += line + "\r\n";
        }
    }
    return texts;
}

std::string SetBy(int (CServiceSDP::*decode)(const std::string&, CStreamParam*), const std::string& text) {
    CStreamParam param;
    return (CServiceSDP().*decode)(text, &param) == 0 ? Set(param) : "refused";
}

// A name tells the form, the type of text and the rest of what makes it.
TEST_F(SipSdpEncodeTest, EachServiceInEachFormAsWrittenByHand) {
    const std::pair<const char*, std::uint32_t> services[] = {{"playback", SERVICE_TYPE_PU_PLAYBACK},
                                                              {"download", SERVICE_TYPE_PU_DOWNLOAD},
                                                              {"private download answer", SERVICE_TYPE_PU_UPLOAD},
                                                              {"talk", SERVICE_TYPE_AUDIO_CALL},
                                                              {"broadcast", SERVICE_TYPE_AUDIO_BROADCAST}};
    const std::map<std::string, Golden> texts = GoldenTexts();
    EXPECT_EQ(texts.size(), 31u);
    m_codec.SetPlaybackType(-3);
    for (const auto& [name, golden] : texts) {
        const std::string& expected = golden.text;
        const auto says = [&name = name](const char* word) { return name.find(word) != std::string::npos; };
        CStreamParam param = UsualStream();
        for (const auto& [word, type] : services) {
            param.m_nBusinessType = says(word) ? type : param.m_nBusinessType;
        }
        param.m_strRecordStartTime = "20260701120000";
        param.m_strRecordEndTime = "20260701130000";
        param.m_nSrcTransProtocol = param.m_nDstTransProtocol = says("TCP") ? RTP_OVER_TCP : RTP_OVER_UDP;
        if (says("crossed")) {
            param.m_nSrcTransProtocol = RTP_OVER_UDP;
        }
        param.m_nMediaSecurityEnable = says("secure") ? MEDIA_SECURITY_ENABLE : MEDIA_SECURITY_DISABLE;
        param.m_nRecvStreamMode = says("receive mode 1") ? 1 : 0;
        param.m_strSessionID = says("no session") ? "" : "7001";
        Configure(says("area 1")   ? "SUPPORT_AREA_TYPE=1\n"
                  : says("area 2") ? "SUPPORT_AREA_TYPE=2\nLIVE_VIEW_VIDEO=sendrecv\n"
                  : says("area 3") ? "SUPPORT_AREA_TYPE=3\n"
                  : says("directions")
                      ? "AUDIO_TALK_SEND=sendrecv\nAUDIO_TALK_RECV=recvonly\nAUDIO_BROADCAST=recvonly\n"
                      : "");
        std::string text;
        auto decode = &CServiceSDP::DecodeSDP;
        if (says("private")) {
            EXPECT_EQ(0, m_codec.EncodeSDP("cam-1", &param, text, says("answer"))) << name;
        } else if (says("one-block")) {
            const auto type = static_cast<ZVS_SERVICE_TYPE>(param.m_nBusinessType);
            EXPECT_EQ(0, m_codec.EncodeT28181TalkSDP(type, "cam-1", &param, text, says("answer"), says("NAT"))) << name;
            decode = &CServiceSDP::DecodeT28181TalkSDP;
        } else {
            EXPECT_EQ(0, m_codec.EncodeT28181SDP("cam-1", &param, text, says("answer"), says("NAT"))) << name;
            EXPECT_TRUE(m_log->Contains("the sdp string is:" + expected)) << name;
            decode = says("talk") || says("broadcast") ? &CServiceSDP::DecodeT28181TalkSDP : decode;
        }
        EXPECT_EQ(text, expected) << name;
        EXPECT_EQ(SetBy(decode, expected), golden.set) << name;
    }
    EXPECT_EQ(m_log->Count("support area=3.", "Encode t28181 media fail."), 2u);
    EXPECT_TRUE(m_log->Contains("VideoPort[7000],AudioPort[7002]", "T28181 PortMap Send to pu Port:"));
}

TEST_F(SipSdpEncodeTest, RecordTimesAreSecondsOnBothSidesOfAChangeToSummerTime) {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    const auto times = [this](const std::string& start, const std::string& end) {
        CStreamParam param = UsualStream();
        param.m_strRecordStartTime = start;
        param.m_strRecordEndTime = end;
        std::set<std::string> lines;
        for (const std::uint32_t service : {SERVICE_TYPE_PU_DOWNLOAD, SERVICE_TYPE_PU_PLAYBACK}) {
            param.m_nBusinessType = service;
            std::string texts[2];
            EXPECT_EQ(0, m_codec.EncodeT28181SDP("cam-1", &param, texts[0], false, false));
            EXPECT_EQ(0, m_codec.EncodeSDP("cam-1", &param, texts[1], true));
            for (const std::string& text : texts) {
                const std::size_t line = text.find("\nt=") + 1;
                lines.insert(text.substr(line, text.find('\r', line) - line));
            }
        }
        EXPECT_EQ(lines.size(), 1u) << "both forms and services say the same";
        return *lines.begin();
    };
    EXPECT_EQ(times("20260329005959", "20260329010001"), "t=1774745999 1774746001");
    EXPECT_EQ(times("20261024235959", "20261025020000"), "t=1792886399 1792893600");
    // Of the hour that comes twice local time cannot tell which.
    const std::string twice = times("20261025003000", "20261025013000");
    EXPECT_EQ(twice.substr(2, 10), twice.substr(13));
    EXPECT_EQ(times("2026032900595", "2026-03-29 00:59:59"), "t= ");
    unsetenv("TZ");
    tzset();
}

TEST_F(SipSdpEncodeTest, FormatsAndPayloadsOfABlock) {
    const struct {
        unsigned int media;
        std::uint32_t format;
        std::uint32_t payload;
        bool isResp;
        std::string map;
    } rows[] = {
        {2, VIDEO_DEC_MJPEG, 0, false, "26 JPEG"},       {2, VIDEO_DEC_H265, 96, false, "108 H265"},
        {2, VIDEO_DEC_SVAC, 0, false, "104 SVAC"},       {2, VIDEO_DEC_HIK, 96, true, "109 HIK"},
        {2, VIDEO_DEC_HIK, 96, false, "96 HIK"},         {2, 77, 0, true, "99 H264"},
        {3, GVX_AUDIO_FORMAT_G711U, 0, false, "0 PCMU"}, {3, AUDIO_FORMAT_G726, 0, true, "4 G723"},
        {3, AUDIO_FORMAT_G726, 97, true, "97 G723"},     {3, GVX_AUDIO_FORMAT_AAC, 0, false, "8 PCMA"},
    };
    for (const auto& row : rows) {
        CStreamParam param = UsualStream();
        param.m_nVideoFormat = param.m_nAudioFormat = row.format;
        param.m_nVideoPayLoadType = param.m_nAudioPayLoadType = row.payload;
        if (row.media == SDP_MEDIA_AUDIO) {
            param.m_nSrcTransProtocol = param.m_nDstTransProtocol = TCP;  // counts as UDP here
        }
        std::string text;
        EXPECT_EQ(ZVS_SUCCEED, m_codec.EncodeMedia(row.media, &param, "x", 1, text, row.isResp));
        EXPECT_NE(text.find("\r\na=rtpmap:" + row.map + "/"), std::string::npos) << text;
        EXPECT_NE(text.find(" RTP/AVP " + row.map.substr(0, row.map.find(' ')) + "\r\n"), std::string::npos) << text;
    }
    // The keys of stronger algorithms do not travel in a description.
    for (const std::uint32_t algorithm : {0, 1, 5, 6}) {
        CStreamParam param = UsualStream();
        param.m_nMediaSecurityEnable = MEDIA_SECURITY_ENABLE;
        param.m_nMediaSecurityAlgorithm = algorithm;
        for (const unsigned int media : {SDP_MEDIA_VIDEO, SDP_MEDIA_AUDIO}) {
            std::string text;
            EXPECT_EQ(ZVS_SUCCEED, m_codec.EncodeMedia(media, &param, "x", 1, text, true));
            EXPECT_EQ(text.find("a=crypto") != std::string::npos, algorithm == 0) << algorithm;
        }
    }
}

TEST_F(SipSdpEncodeTest, ARefusalNamesItsReasonAndLeavesTheOutputAlone) {
    CServiceSDP& codec = m_codec;
    std::string text = "before";
    CStreamParam odd = UsualStream();
    odd.m_nSrcTransProtocol = odd.m_nDstTransProtocol = TCP;
    CStreamParam talk = odd;
    talk.m_nBusinessType = SERVICE_TYPE_AUDIO_CALL;
    CStreamParam mixed = odd;
    mixed.m_nDstTransProtocol = RTP_OVER_TCP;
    const auto refuses = [&](int code, int result, const char* title, const char* detail, const char* second = "") {
        EXPECT_EQ(code, result) << title;
        EXPECT_TRUE(m_log->Contains(detail, title) && m_log->Contains("", second)) << title << m_log->Dump();
        EXPECT_EQ(text, "before") << title;
        m_log->Clear();
    };
    refuses(codec.EncodeSDP("", &odd, text, false), 2, "encode sdp - invalid param", "Lens count=0, Stream Param=");
    refuses(codec.EncodeT28181SDP("l", nullptr, text, false, false), 2, "encode sdp - invalid param",
            "Lens_ID_Size=1, Stream_Param=");
    refuses(codec.EncodeMedia(2, &odd, "", 1, text, false), 2, "encode media - invalid param", "Media=2.");
    refuses(codec.EncodeT28181Media(3, nullptr, "x", 1, text, false, false), 2, "encode media - invalid param", "=3.");
    refuses(codec.EncodeT28181Media(1, &odd, "x", 1, text, false, false), 1, "encode media - unsupport media", "1");
    refuses(codec.EncodeSDP("l", &mixed, text, true), 1, "encode media - unsupport application protocol", "Protocol=4.",
            "encode sdp - failure to encode media");
    refuses(codec.EncodeSDP("l", &odd, text, false), 1, "encode media - unsupport video protocol", "Protocol=4.",
            "encode sdp - failure to encode video.");
    refuses(codec.EncodeT28181SDP("l", &talk, text, false, false), 1, "encode media - unsupport audio protocol", "4",
            "encode sdp - failure to encode audio");
}

}  // namespace
