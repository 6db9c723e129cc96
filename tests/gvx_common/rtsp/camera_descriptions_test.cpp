#include "gvx_common/rtsp/common_rtsp_method_describe.h"

#include "gvx_common/socket/common_socket_stream.h"
#include "support/recording_logger.h"
#include "support/temp_folder.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include <gtest/gtest.h>

// Descriptions as cameras and recorders send them, in fuzz/corpus/rtsp_sdp, and what becomes of each as an answer.

namespace {

struct Row {
    const char* file;
    const char* sessions;  // "<name>|<type>|<control>" of each media; null when the answer is refused
    const char* told;      // range of the session, or the log line that says why it was refused
};

constexpr char kVideo1[] = "video|RTP/AVP|1";
constexpr char kTrackPair[] = "video|RTP/AVP|trackID=0 audio|RTP/AVP|trackID=1";
constexpr char kSessionLine[] = "Parse session line failed.";
constexpr char kMediaLine[] = "Parse media line failed.";
constexpr char kFormat[] = "Format sdp line failed.";

const Row kRows[] = {
    {"h264_g711_recvonly", kTrackPair, "npt=now-"},
    {"line_feeds", kTrackPair, "npt=now-"},
    {"carriage_returns", kTrackPair, "npt=now-"},
    {"blank_lines", kTrackPair, "npt=now-"},
    {"no_line_end_last", kVideo1, ""},
    {"absolute_control",
     "video|RTP/AVP|rtsp://192.0.2.64:554/live/ch1/trackID=1 audio|RTP/AVP|rtsp://192.0.2.64:554/live/ch1/trackID=2",
     "clock=20240101T000000Z-"},
    {"several_formats", "video|RTP/AVP|track1 audio|RTP/AVP|track2", ""},
    {"formats_96_97", "video|RTP/AVP|track1", ""},
    {"h265", "video|RTP/AVP|trackID=1", ""},
    {"mpeg4_aac", "video|RTP/AVP|trackID=1 audio|RTP/AVP|trackID=2", ""},
    {"transport_stream", "video|RTP/AVP|ts", ""},
    {"static_jpeg", "video|RTP/AVP|rtsp://192.0.2.64/mjpeg", ""},
    {"metadata_track", "video|RTP/AVP|video application|RTP/AVP|meta", ""},
    {"no_media", "", "npt=0-3600.5"},
    {"all_lines", kVideo1, ""},
    {"blanks_ahead", kVideo1, ""},
    {"blanks_behind_colon", "video|RTP/AVP|trackID=1", ""},
    {"blank_session_name", kVideo1, ""},
    {"nul_inside", kVideo1, ""},
    {"long_format_parameters", kVideo1, ""},
    {"control_twice", "video|RTP/AVP|first", ""},
    {"two_videos", "video|RTP/AVP|first video|RTP/AVP|first", ""},
    // An audio that the device takes in.
    {"audio_back", "video|RTP/AVP|trackID=1 audio|RTP/AVP|trackID=2 audioback|RTP/AVP|trackID=3", ""},
    {"audio_back_first_line", "audioback|RTP/AVP|back video|RTP/AVP|video", ""},
    {"audio_back_upper_case", "audioback|RTP/AVP|back", ""},
    {"video_sendonly", "video|RTP/AVP|video", ""},
    // Transports, and formats that leave the type empty.
    {"raw_udp", "video|RAW/RAW/UDP|raw", ""},
    {"udp_word", "video|RAW/RAW/UDP|raw", ""},
    {"feedback_over_tcp", "video|RTP/AVP|1", ""},
    {"secure_rtp", "video||1", ""},
    {"format_200", "video||1", ""},
    {"format_huge", "video||1", ""},
    {"format_is_a_word", "video||1", ""},
    {"long_media_line", "video||1", ""},
    // Flags: what follows, up to the next ':', is taken as their name.
    {"flag_between", kVideo1, ""},
    {"session_flag", kVideo1, ""},
    {"flag_last", nullptr, "AttriLine [a=sendrecv] not has ':'"},
    {"flag_far_from_colon", nullptr, "strncpy_s szAttriName failed!"},
    // Empty values and lines that are none.
    {"empty_session_name", nullptr, kSessionLine},
    {"empty_connection", nullptr, kSessionLine},
    {"empty_media_title", nullptr, kMediaLine},
    {"media_line_empty", nullptr, kMediaLine},
    {"media_line_empty_last", nullptr, "Input line is [m=]"},
    {"line_without_equals", nullptr, "Invalid sdp line: camera."},
    {"upper_case_key", nullptr, "Invalid sdp line: V=0."},
    {"html_page", nullptr, kFormat},
    {"blank_line_of_blanks", nullptr, kFormat},
    // What finds no room.
    {"long_title", nullptr, kSessionLine},
    {"long_media_name", nullptr, "Input line is [m="},
    {"long_control", nullptr, "strncpy_s szElement failed!"},
    {"no_control", nullptr, "Can't find key [control] in media name [audio]."},
};

std::string Sessions(CCommonRtspMethodDescribe& describe) {
    std::string text;
    for (const CCommonSession* session : *describe.GetSessionList()) {
        text += (text.empty() ? "" : " ") + std::string(session->m_szSessionName) + "|" + session->m_szSessionType +
                "|" + session->m_szCtrlPath;
    }
    return text;
}

TEST(CameraDescriptions, AreTakenOrRefusedAsTheirLinesSay) {
    std::set<std::string> left;
    for (const auto& file : std::filesystem::directory_iterator(SourceTree() / "fuzz/corpus/rtsp_sdp")) {
        if (file.path().extension() != ".inputs") {
            left.insert(file.path().filename());
        }
    }
    CCommonSocketStream unused;
    CCommonRtspMethodDescribe describe("DESCRIBE");
    describe.SetSocketStream(&unused);
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.file);
        left.erase(row.file);
        std::ifstream file(SourceTree() / "fuzz/corpus/rtsp_sdp" / row.file, std::ios::binary);
        const std::string body((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        ASSERT_FALSE(body.empty());
        const std::string answer =
            "RTSP/1.0 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
        ScopedRecordingLogger log;
        ASSERT_EQ(0, describe.Init());
        ASSERT_EQ(0, describe.SetRecvPack(answer.c_str(), static_cast<int>(answer.size())));
        ASSERT_EQ(row.sessions != nullptr ? 0 : 1, describe.ParseRecvPack()) << log->Dump();
        if (row.sessions == nullptr) {
            EXPECT_TRUE(log->Contains(row.told)) << log->Dump();
            continue;
        }
        EXPECT_EQ(row.sessions, Sessions(describe));
        char range[64] = {};
        EXPECT_EQ(*row.told != '\0' ? 0 : 1, describe.GetRangeInfo(range, sizeof(range)));
        EXPECT_STREQ(row.told, range);
    }
    EXPECT_EQ(std::set<std::string>(), left) << "descriptions without a row";
}

}  // namespace
