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

constexpr char kText[] =
    "v=0\r\ns=Camera\r\ns=Other\r\na=range:npt=0-\r\na=range:npt=5-\r\nm=video 0 RTP/AVP 96\r\na=control:1\r\n";

TEST_F(CommonSdp, LetterGettersAnswerFoundWithOne) {
    ASSERT_EQ(0, Parse(kText));
    EXPECT_EQ(1, m_sdp.GetSessionElement('s', sizeof(m_text), m_text));
    EXPECT_STREQ("Camera", m_text);
    EXPECT_EQ(1, m_sdp.GetSessionElement('v', 0, nullptr));
    EXPECT_EQ(0, m_sdp.GetSessionElement('i', sizeof(m_text), m_text));
    EXPECT_TRUE(m_log->Contains("Key i is not found."));
    EXPECT_EQ(1, m_sdp.GetMediaElement("video", 'm', sizeof(m_text), m_text));
    EXPECT_STREQ("video 0 RTP/AVP 96", m_text);
    EXPECT_EQ(0, m_sdp.GetMediaElement("video", 's', sizeof(m_text), m_text));
    EXPECT_TRUE(m_log->Contains("Key [s] is not found in media name [video]"));
    EXPECT_EQ(0, m_sdp.GetMediaElement("audio", 'm', sizeof(m_text), m_text));
    EXPECT_EQ(0, m_sdp.GetMediaElement(nullptr, 'm', sizeof(m_text), m_text));
    EXPECT_EQ(1, m_sdp.GetSessionElement('s', 6, m_text));
    EXPECT_STREQ("", m_text);
    EXPECT_TRUE(m_log->Contains("strncpy_s szElement failed!"));
}

TEST_F(CommonSdp, AttributeGettersAnswerSuccessWithZero) {
    ASSERT_EQ(0, Parse(kText));
    EXPECT_EQ(0, m_sdp.GetSessionElementA("range", m_text, sizeof(m_text)));
    EXPECT_STREQ("npt=0-", m_text);
    EXPECT_EQ(1, m_sdp.GetSessionElementA("range", m_text, 6));
    EXPECT_EQ(1, m_sdp.GetSessionElementA("control", m_text, sizeof(m_text)));
    EXPECT_TRUE(m_log->Contains("Can't find key: control"));
    EXPECT_EQ(2, m_sdp.GetSessionElementA(nullptr, m_text, sizeof(m_text)));
    EXPECT_EQ(2, m_sdp.GetSessionElementA("range", nullptr, 0));
    EXPECT_EQ(0, m_sdp.GetMediaElementA("video", "control", m_text, sizeof(m_text)));
    EXPECT_STREQ("1", m_text);
    EXPECT_EQ(1, m_sdp.GetMediaElementA("video", "range", m_text, sizeof(m_text)));
    EXPECT_EQ(1, m_sdp.GetMediaElementA("audio", "control", m_text, sizeof(m_text)));
    EXPECT_TRUE(m_log->Contains("Can't find media name: audio"));
    EXPECT_EQ(1, m_sdp.GetMediaElementA("video", nullptr, m_text, sizeof(m_text)));
}

TEST_F(CommonSdp, TablesStayAsFarAsTheyWereFilled) {
    EXPECT_EQ(1, Parse("v=0\r\nm=video 0 RTP/AVP 96\r\na=control:1\r\nm=audio 0 RTP/AVP 0\r\ni=\r\n"));
    EXPECT_EQ((std::list<std::string>{"video", "audio"}), *m_sdp.GetMediaNameList());
    EXPECT_EQ(0, m_sdp.GetMediaElementA("video", "control", m_text, sizeof(m_text)));
    // The media that failed has a name and nothing under it.
    EXPECT_EQ(0, m_sdp.GetMediaElementA("audio", "control", m_text, sizeof(m_text)));
    EXPECT_EQ(0, m_sdp.GetMediaElement("audio", 'm', sizeof(m_text), m_text));
    ASSERT_EQ(0, Parse("v=0\r\na=tool:x\r\n"));
    EXPECT_TRUE(m_sdp.GetMediaNameList()->empty());
    EXPECT_EQ(0, m_sdp.GetSessionElementA("tool", m_text, sizeof(m_text)));
    m_sdp.Clear();
    EXPECT_EQ(1, m_sdp.GetSessionElementA("tool", m_text, sizeof(m_text)));
}

TEST_F(CommonSdp, BoundsTheText) {
    EXPECT_EQ(1, m_sdp.InitSdpPack(nullptr, 0));
    EXPECT_EQ(1, m_sdp.InitSdpPack("v=0", -1));
    EXPECT_TRUE(m_log->Contains("Input parameter error, len is [-1]."));
    EXPECT_EQ(1, m_sdp.InitSdpPack(std::string(4096, 'v').c_str(), 1));
    EXPECT_TRUE(m_log->Contains("strncpy_s m_szSdpContent failed!"));
    EXPECT_EQ(0, m_sdp.InitSdpPack(("v=" + std::string(1023, 'v')).c_str(), INT_MAX));
    EXPECT_EQ(0, m_sdp.ParseSdp());
    EXPECT_EQ(1, Parse("v=" + std::string(1024, 'v')));
    EXPECT_EQ(1, Parse(""));
    EXPECT_TRUE(m_log->Contains("Line end."));
}

TEST(CommonSession, TakesTheLastFormatOfAMediaLine) {
    struct Row {
        const char* line;
        int result;
        const char* told;  // type, or the reason
    };
    const Row rows[] = {
        {"video 0 RTP/AVP 96 97", 0, "RTP/AVP"},
        {"127", 1, "Bad \"m=\" line: 127."},
        {"video 0 RTP/AVP 128", 1, "Bad \"m=\" line: video 0 RTP/AVP 128! PayloadFormat > 127"},
        {"video 0 RTP/AVP 96 ", 1, "Line \"m=\" is not end with INT!"},
        {nullptr, 1, "Input parameter is null."},
    };
    for (const Row& row : rows) {
        ScopedRecordingLogger log;
        CCommonSession session;
        EXPECT_EQ(row.result, session.SetMediaType(row.line));
        EXPECT_TRUE(row.result == 0 ? session.m_szSessionType == std::string(row.told) : log->Contains(row.told))
            << row.told << "\n"
            << log->Dump();
        session.Clear();
        EXPECT_STREQ("", session.m_szSessionType);
    }
}

}  // namespace
