#include "gvx_common/records/stream_param.h"

#include "support/recording_logger.h"

#include <gtest/gtest.h>

#include <cstring>

#include <arpa/inet.h>

namespace {

TEST(StreamParam, PrintsWhereTheStreamGoesAndNeverAKey) {
    ScopedRecordingLogger log;
    CStreamParam param("service-7");
    EXPECT_EQ(param.m_pSocketInfo, nullptr);
    EXPECT_FALSE(param.m_bRTSP);
    param.m_nDstVideoIP = 0xC0000201;
    param.m_nDstVideoPort = 40000;
    param.m_nSrcRtpVideoIp = inet_addr("10.0.0.9");
    std::strcpy(param.m_securityKeyOfMedia, "video-secret");
    std::strcpy(param.m_securityKeyOfAudio, "audio-secret");
    std::memcpy(param.m_CBCSecurityAlgorithmIV, "initial--vector", 16);
    param.print();
    EXPECT_TRUE(log->Contains("service[service-7]"));
    EXPECT_TRUE(log->Contains("destination video[192.0.2.1:40000]"));
    EXPECT_TRUE(log->Contains("source video[10.0.0.9:0]"));
    EXPECT_FALSE(log->Contains("secret"));
    EXPECT_FALSE(log->Contains("vector"));
}

}  // namespace
