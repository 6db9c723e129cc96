#include "gvx_common/rtsp/common_sdp.h"

#include "gvx_common/rtsp/common_session.h"
#include "support/recording_logger.h"

#include <climits>

#include <gtest/gtest.h>

namespace {

class CommonSdp : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, m_sdp.Init()); }
    int Parse(const std::string& text) {
        EXPECT_EQ(0, m_sdp.InitSdpPack(text.c_str(), static_cast<int>(text.size())));
        return m_sdp.ParseSdp();
    }

    ScopedRecordingLogger m_log;
    CCommonSdp m_sdp;
    char m_text[32] = {};
};

// Getters by letter answer "found" with 1, those of attributes success with 0.
TEST_F(CommonSdp, GettersTakeTheFirstOfTheirKindWhereItHasRoom) {
    ASSERT_EQ(0, Parse("v=0\r\ns=Camera\r\ns=Other\r\na=range:npt=0-\r\na=range:npt=5-\r\nm=video 0 RTP/AVP 96\r\n"
                       "a=control:1\r\n"));
    EXPECT_EQ(1, m_sdp.GetSessionElement('s', sizeof(m_text), m_text));
    EXPECT_STREQ("Camera", m_text);
    EXPECT_EQ(1, m_sdp.GetSessionElement('s', 6, m_text));
    EXPECT_STREQ("", m_text) << "no room";
    EXPECT_EQ(0, m_sdp.GetSessionElementA("range", m_text, sizeof(m_text)));
    EXPECT_STREQ("npt=0-", m_text);
    EXPECT_EQ(1, m_sdp.GetSessionElementA("range", m_text, 6));
    EXPECT_EQ(2, m_sdp.GetSessionElementA("range", nullptr, 0));
    EXPECT_EQ(0, m_sdp.GetMediaElement("audio", 'm', sizeof(m_text), m_text));
    EXPECT_EQ(0, m_sdp.GetMediaElement(nullptr, 'm', sizeof(m_text), m_text));
    EXPECT_EQ(1, m_sdp.GetMediaElementA("video", nullptr, m_text, sizeof(m_text)));
}

TEST_F(CommonSdp, BoundsTheText) {
    EXPECT_EQ(1, m_sdp.InitSdpPack(nullptr, 0));
    EXPECT_EQ(1, m_sdp.InitSdpPack("v=0", -1));
    EXPECT_EQ(1, m_sdp.InitSdpPack(std::string(4096, 'v').c_str(), 1));
    EXPECT_EQ(0, m_sdp.InitSdpPack(("v=" + std::string(1023, 'v')).c_str(), INT_MAX));
    EXPECT_EQ(0, m_sdp.ParseSdp());
    EXPECT_EQ(1, Parse("v=" + std::string(1024, 'v')));
    EXPECT_EQ(1, Parse(""));
}

TEST(CommonSession, TakesTheLastFormatOfAMediaLine) {
    // The type, or none of a line that is refused.
    const std::pair<const char*, const char*> rows[] = {
        {"video 0 RTP/AVP 96 97", "RTP/AVP"}, {"video 0 RTP/AVP 127", "RTP/AVP"}, {"127", ""},
        {"video 0 RTP/AVP 128", ""},          {"video 0 RTP/AVP 96 ", ""},        {nullptr, ""}};
    for (const auto& [line, type] : rows) {
        CCommonSession session;
        EXPECT_EQ(*type != '\0' ? 0 : 1, session.SetMediaType(line));
        EXPECT_STREQ(type, session.m_szSessionType);
        session.Clear();
        EXPECT_STREQ("", session.m_szSessionType);
    }
}

}  // namespace
