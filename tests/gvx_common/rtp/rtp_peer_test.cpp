#include "gvx_common/rtp/rtp_poller.h"

#include "gvx_common/rtp/common_rtp_receiver.h"
#include "support/temp_folder.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

namespace {

// Everything of a stream that came, as one elementary stream, to be read once its receiver is out of the poller.
class StreamSink : public IRtpReceiverSink {
public:
    void OnAccessUnit(const gvx::RtpAccessUnit& unit) override {
        bytes.append(reinterpret_cast<const char*>(unit.data), unit.size);
        damaged += unit.IsDamaged();
        ++units;
        count += unit.size;
    }
    std::string bytes;
    int damaged = 0;
    std::atomic<int> units{0};
    std::atomic<std::size_t> count{0};
};

// The same stream with every start code of four bytes and without delimiters, which a sender may add or leave out.
std::string Normal(const std::string& stream, bool h265) {
    std::string normal;
    const std::string code("\0\0\1", 3);
    for (std::size_t at = stream.find(code); at != std::string::npos;) {
        const std::size_t next = stream.find(code, at + 3);
        std::string unit = stream.substr(at + 3, next == std::string::npos ? next : next - at - 3);
        while (!unit.empty() && unit.back() == '\0') {
            unit.pop_back();
        }
        const unsigned type = h265 ? static_cast<unsigned char>(unit[0]) >> 1 & 0x3F : unit[0] & 0x1F;
        if (type != (h265 ? 35u : 9u)) {
            normal += std::string("\0\0\0\1", 4) + unit;
        }
        at = next;
    }
    return normal;
}

class RtpPeer : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string ffmpeg =
            "ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=640x360:rate=25 -t 2 -g 25 -b:v 3M ";
        Run(ffmpeg + "-c:v libx264 -preset ultrafast -bf 0 -x264-params slices=2 -f h264 " + m_folder.Path("v.h264"));
        Run(ffmpeg + "-c:v libx265 -preset ultrafast -x265-params log-level=none:bframes=0 -f hevc " +
            m_folder.Path("v.h265"));
        Run("ffmpeg -nostdin -v error -y -f lavfi -i sine=frequency=440:sample_rate=8000 -t 2 -c:a pcm_alaw -f alaw " +
            m_folder.Path("a.al"));
        m_thread = std::thread([this] {
            while (m_running) {
                m_poller.Poll(200);
            }
        });
    }
    void TearDown() override {
        m_running = false;
        m_poller.Wake();
        m_thread.join();
    }
    static void Run(const std::string& command) { ASSERT_EQ(std::system(command.c_str()), 0) << command; }

    // A receiver on a port of its own, served until the end of the test.
    struct Stream {
        StreamSink sink;
        CCommonRtpReceiver receiver{sink};
    };
    void Open(Stream& stream, enRtpCodec codec) {
        RtpReceiverParams params;
        params.codec = codec;
        params.endpoint.strLocalIp = "127.0.0.1";
        params.endpoint.uiClockRate = codec == RTP_CODEC_G711 ? 8000 : 90000;
        ASSERT_EQ(stream.receiver.Open(params), 0);
        ASSERT_EQ(m_poller.Add(stream.receiver), 0);
    }
    // Sends video and audio with the command; all of both must come whole.
    void Check(bool h265, const std::string& prefix, const std::string& video, const std::string& audio) {
        Stream videoStream, audioStream;
        Open(videoStream, h265 ? RTP_CODEC_H265 : RTP_CODEC_H264);
        Open(audioStream, RTP_CODEC_G711);
        Run(prefix + video + std::to_string(videoStream.receiver.GetPort()) + audio +
            std::to_string(audioStream.receiver.GetPort()));
        const std::string sent = Normal(m_folder.Read(h265 ? "v.h265" : "v.h264"), h265);
        const std::string sentAudio = m_folder.Read("a.al");
        WaitUntil([&] { return videoStream.sink.units >= 50 && audioStream.sink.count >= sentAudio.size(); });
        for (Stream* stream : {&videoStream, &audioStream}) {
            EXPECT_EQ(m_poller.Remove(stream->receiver), 0);
            stream->receiver.Close();
        }
        EXPECT_EQ(videoStream.sink.units, 50);
        EXPECT_EQ(videoStream.sink.damaged, 0);
        EXPECT_TRUE(Normal(videoStream.sink.bytes, h265) == sent);
        EXPECT_TRUE(audioStream.sink.bytes == sentAudio);
    }

    TempFolder m_folder;
    gvx::RtpPoller m_poller;
    std::atomic<bool> m_running{true};
    std::thread m_thread;
};

TEST_F(RtpPeer, EveryFrameOfFfmpegAndOfGStreamerArrivesWhole) {
    for (const bool h265 : {false, true}) {
        const std::string codec = h265 ? "h265" : "h264";
        Check(h265,
              "ffmpeg -nostdin -v error -re -f " + std::string(h265 ? "hevc" : "h264") + " -framerate 25 -i " +
                  m_folder.Path("v." + codec) + " -re -f alaw -ar 8000 -ac 1 -i " + m_folder.Path("a.al"),
              " -map 0:v -c:v copy -f rtp rtp://127.0.0.1:", " -map 1:a -c:a copy -f rtp rtp://127.0.0.1:");
        Check(h265,
              "gst-launch-1.0 -q filesrc location=" + m_folder.Path("v." + codec) + " ! video/x-" + codec +
                  ",framerate=25/1 ! " + codec + "parse ! rtp" + codec +
                  "pay mtu=1200 aggregate-mode=zero-latency ! udpsink host=127.0.0.1",
              " port=",
              " filesrc location=" + m_folder.Path("a.al") +
                  " ! rawaudioparse format=alaw sample-rate=8000 num-channels=1 ! audio/x-alaw,rate=8000,channels=1 ! "
                  "rtppcmapay ! udpsink host=127.0.0.1 port=");
    }
}

}  // namespace
