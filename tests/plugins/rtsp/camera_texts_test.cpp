#include "gvx_common/security/gvx_security_mgr.h"
#include "rtsp/camera_profile.h"
#include "rtsp/login_policy.h"
#include "rtsp/rtsp_dialogue.h"
#include "rtsp/stream_description.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>

namespace gvxrtsp {
namespace {

constexpr std::int64_t kSecondUs = 1000000;

TEST(LoginPolicy, LaterAfterEachFailureAndNeverTooOften) {
    LoginPolicy policy(40);
    std::int64_t nowUs = 1000 * kSecondUs;
    for (const std::int64_t pauseMs : {500, 1000, 2000, 4000, 8000, 16000, 30000, 30000}) {
        policy.OnLogin(nowUs);
        policy.OnFailure(nowUs, 0.5);
        EXPECT_EQ(nowUs + pauseMs * 1000, policy.NextUs(nowUs));
        nowUs += pauseMs * 1000;
    }
    policy.OnSuccess();
    policy.OnFailure(nowUs, 1.0);
    EXPECT_EQ(nowUs + 600000, policy.NextUs(nowUs)) << "a fifth more at most";

    LoginPolicy few(2);
    few.OnLogin(nowUs);
    few.OnLogin(nowUs + kSecondUs);
    EXPECT_EQ(nowUs + 60 * kSecondUs, few.NextUs(nowUs + 2 * kSecondUs));
    EXPECT_LE(few.NextUs(nowUs + 60 * kSecondUs), nowUs + 60 * kSecondUs);
}

TEST(LoginPolicy, LeavesACameraAloneThatRefusesThePassword) {
    LoginPolicy policy(600);
    const std::int64_t nowUs = 1000 * kSecondUs;
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(policy.IsLockedOut(nowUs));
        policy.OnRefusal(nowUs);
        policy.OnFailure(nowUs, 0.0);
    }
    EXPECT_EQ(nowUs + 600 * kSecondUs, policy.NextUs(nowUs + kSecondUs));
    const std::int64_t laterUs = nowUs + 600 * kSecondUs;
    EXPECT_LE(policy.NextUs(laterUs), laterUs);
    policy.OnRefusal(laterUs);  // one try, then it waits again
    EXPECT_EQ(laterUs + 600 * kSecondUs, policy.NextUs(laterUs));
    policy.Reset();
    EXPECT_LE(policy.NextUs(laterUs), laterUs);
}

TEST(CameraProfiles, PathsThatAnsweredAreTriedFirstBehindARestart) {
    const TempFolder folder;
    const std::string file = folder.Write("found.json", "{\"rtsp://192.0.2.2:554\":[\"/b\",\"\",\"no path\"],\"x\":7}");
    CameraProfile profile;
    profile.address = "192.0.2.1";
    CameraProfile other = profile;
    other.address = "192.0.2.2";
    for (const bool restarted : {false, true}) {
        CameraProfiles profiles;
        std::string error;
        ASSERT_TRUE(profiles.Load(folder.Path("rtsp.json"), error)) << error;
        profiles.KeepFoundIn(file);
        EXPECT_EQ(restarted ? "/a" : "/", profiles.Candidates(profile).front().main);
        EXPECT_EQ(restarted ? "/a.jpg" : "", profiles.SnapshotPath(profile));
        EXPECT_EQ("/", profiles.Candidates(other).front().main) << "a row that was spoilt counts for nothing";
        profiles.Remember(profile, {"/a", "", "/a.jpg"});
        profiles.SaveFound();
    }
}

std::string Summary(const StreamDescription& description) {
    std::string text;
    for (const TrackDescription& track : description.tracks) {
        text += "codec " + std::to_string(track.codec) + " type " + std::to_string(track.payloadType) + " rate " +
                std::to_string(track.clockRate) + " sets " + std::to_string(track.parameterSets.size()) +
                (track.pictureLoss ? " pli " : " ") + track.url + "\n";
    }
    const std::size_t sound = description.leftOut.find("sound, ");
    return sound == std::string::npos ? text : text + "without " + description.leftOut.substr(sound + 7, 13) + "\n";
}

TEST(CameraProfiles, RefuseSettingsOutsideTheirRanges) {
    const TempFolder folder;
    for (const std::string bad : {R"({"loginsPerMinute":0})", R"({"noFramesSeconds":0})", R"({"loops":65})"}) {
        CameraProfiles profiles;
        std::string error;
        EXPECT_FALSE(profiles.Load(folder.Write("rtsp.json", bad), error));
        EXPECT_NE(std::string::npos, error.find("is not a number from")) << error;
    }
}

TEST(AacFrameHead, SaysWhatTheConfigurationSays) {
    const struct {
        const char* config;
        bool taken;
        std::array<std::uint8_t, AacFrameHead::kBytes> head;  // of 0x123 bytes
    } rows[] = {
        {"1210", true, {0xFF, 0xF1, 0x50, 0x80, 0x25, 0x5F, 0xFC}},      // LC, 44.1 kHz, stereo
        {"1408", true, {0xFF, 0xF1, 0x60, 0x40, 0x25, 0x5F, 0xFC}},      // LC, 16 kHz, mono
        {"2B8A0800", true, {0xFF, 0xF1, 0x5C, 0x40, 0x25, 0x5F, 0xFC}},  // HE: LC of 22.05 kHz within 44.1 kHz
        {"1788005622080", false, {}},                                    // a rate of its own
        {"1200", false, {}},                                             // channels of their own form
        {"1214", false, {}},                                             // 960 samples
        {"", false, {}},
        {"12", false, {}},
        {"xyz!", false, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.config);
        AacFrameHead head;
        EXPECT_EQ(row.taken, head.Read(row.config));
        if (row.taken) {
            EXPECT_EQ(row.head, head.For(0x123));
        }
    }
}

TEST(ReadDescription, TakesWhatCamerasWrite) {
    const std::string head = "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=x\r\nt=0 0\r\n";
    const std::string h264 = "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\n";
    const std::string base = "rtsp://192.0.2.1/live/";
    const struct {
        const char* name;
        std::string text;
        std::string tracks;  // empty: refused
    } rows[] = {
        {"relative control, flag attributes, sets, feedback",
         head + "a=recvonly\r\n" + h264 +
             "a=fmtp:96 packetization-mode=1; sprop-parameter-sets=Z0IAHpWoKA9puAgICBA=,aM48gA==\r\n"
             "a=sendrecv\r\na=rtcp-fb:* nack pli\r\na=control:track1\r\n",
         "codec " + std::to_string(RTP_CODEC_H264) + " type 96 rate 90000 sets 2 pli rtsp://192.0.2.1/live/track1\n"},
        {"absolute control, audio without a map",
         head + h264 + "a=control:rtsp://192.0.2.1:554/a/v\r\nm=audio 0 RTP/AVP 8\r\na=control:a\r\n",
         "codec " + std::to_string(RTP_CODEC_H264) + " type 96 rate 90000 sets 0 rtsp://192.0.2.1:554/a/v\ncodec " +
             std::to_string(RTP_CODEC_G711) + " type 8 rate 8000 sets 0 rtsp://192.0.2.1/live/a\n"},
        {"H.265 and AAC",
         head + "m=video 0 RTP/AVP 97\r\na=rtpmap:97 H265/90000\r\na=fmtp:97 sprop-vps=QAEM;sprop-sps=QgEB;"
                "sprop-pps=RAHA\r\na=control:v\r\nm=audio 0 RTP/AVP 98\r\na=rtpmap:98 MPEG4-GENERIC/16000/1\r\n"
                "a=fmtp:98 sizelength=13;indexlength=3;indexdeltalength=3;config=1408\r\na=control:a\r\n",
         "codec " + std::to_string(RTP_CODEC_H265) + " type 97 rate 90000 sets 3 rtsp://192.0.2.1/live/v\ncodec " +
             std::to_string(RTP_CODEC_AAC) + " type 98 rate 16000 sets 0 rtsp://192.0.2.1/live/a\n"},
        {"sound that platforms are not told of, AAC ELD",
         head + h264 +
             "a=control:v\r\nm=audio 0 RTP/AVP 98\r\na=rtpmap:98 MPEG4-GENERIC/16000/1\r\n"
             "a=fmtp:98 sizelength=13;config=F8F21C00\r\na=control:a\r\n",
         "codec " + std::to_string(RTP_CODEC_H264) +
             " type 96 rate 90000 sets 0 rtsp://192.0.2.1/live/v\nwithout MPEG4-GENERIC\n"},
        {"sets that are longer than the parser's lines",
         head + h264 + "a=fmtp:96 sprop-parameter-sets=" + std::string(20000, 'A') + "\r\na=control:v\r\n",
         "codec " + std::to_string(RTP_CODEC_H264) + " type 96 rate 90000 sets 0 rtsp://192.0.2.1/live/v\n"},
        {"sound alone", head + "m=audio 0 RTP/AVP 0\r\na=control:a\r\n", ""},
        {"another codec", head + "m=video 0 RTP/AVP 26\r\na=control:v\r\n", ""},
        {"a payload type out of range", head + "m=video 0 RTP/AVP 300\r\na=rtpmap:300 H264/90000\r\n", ""},
        {"a clock rate that no media has", head + "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/4294967295\r\n", ""},
        {"no text", std::string("\0\xff\xfe", 3), ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        StreamDescription description;
        std::string error;
        EXPECT_EQ(!row.tracks.empty(), ReadDescription(row.text, base, description, error)) << error;
        EXPECT_EQ(row.tracks.empty(), !error.empty());
        if (!row.tracks.empty()) {
            EXPECT_EQ(row.tracks, Summary(description));
        }
    }
}

TEST(RtspDialogue, AnswersAChallengeOnceAndKeepsTheSession) {
    using Outcome = RtspDialogue::Outcome;
    char stored[1024] = {};
    ASSERT_EQ(0, CSecurityMgr::Instance()->EncryptString("Camera-123", stored, sizeof(stored)));
    RtspDialogue dialogue("admin", stored);
    const std::string url = "rtsp://192.0.2.1/live";
    const auto challenge = [](const std::string& nonce) {
        return "RTSP/1.0 401 Unauthorized\r\nCSeq: 1\r\nwww-authenticate: Basic realm=\"x\"\r\n"
               "WWW-AUTHENTICATE: Digest realm=\"camera\", nonce=\"" +
               nonce + "\"\r\n\r\n";
    };
    std::string request;
    ASSERT_TRUE(dialogue.Build("DESCRIBE", url, {{"Accept", "application/sdp"}}, request));
    EXPECT_EQ(std::string::npos, request.find("Authorization"));
    EXPECT_EQ(Outcome::Again, dialogue.TakeAnswer(challenge("one")));
    ASSERT_TRUE(dialogue.BuildAgain(request));
    EXPECT_NE(std::string::npos, request.find("Authorization: Digest")) << "of two offers the safer one";
    EXPECT_NE(std::string::npos, request.find("Accept: application/sdp"));
    EXPECT_EQ(std::string::npos, request.find("Camera-123"));
    EXPECT_FALSE(dialogue.IsAnswer("RTSP/1.0 200 OK\r\nCSeq: 1\r\n\r\n")) << "that was the request before";
    EXPECT_EQ(Outcome::Refused, dialogue.TakeAnswer(challenge("two"))) << "the password is wrong";

    ASSERT_TRUE(dialogue.Build("SETUP", url, {}, request));
    EXPECT_EQ(Outcome::Again, dialogue.TakeAnswer(challenge("three"))) << "the nonce was too old";
    ASSERT_TRUE(dialogue.BuildAgain(request));
    EXPECT_NE(std::string::npos, request.find("nonce=\"three\""));
    EXPECT_EQ(Outcome::Done, dialogue.TakeAnswer("RTSP/1.0 200 OK\r\nsession: ab12;timeout=15\r\n\r\n"));
    EXPECT_EQ(15, dialogue.SessionSeconds());
    ASSERT_TRUE(dialogue.Build("PLAY", url, {}, request));
    EXPECT_NE(std::string::npos, request.find("Session: ab12\r\n"));
    EXPECT_FALSE(dialogue.Build("PLAY", "rtsp://x/\r\nX: y", {}, request));
    EXPECT_EQ(Outcome::Failed, dialogue.TakeAnswer("RTSP/1.0\r\n\r\n"));
}

}  // namespace
}  // namespace gvxrtsp
