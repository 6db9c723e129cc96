#include "gvx_common/adapter/gvx_adapter_interface.h"
#include "gvx_common/adapter/gvx_plugin.h"
#include "gvx_common/media_memory/MediaMemPool.h"
#include "gvx_common/records/stream_param.h"
#include "plugins/packet_recorder.h"
#include "support/recording_logger.h"
#include "support/stream_bytes.h"
#include "support/temp_folder.h"
#include "support/test_clock.h"
#include "support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

// The plug-in with one medium "demo": 5 pictures of 2 slices, 0.2 s each, and 1 s of G.711A audio.
class FilePluginTest : public testing::Test {
protected:
    FilePluginTest() {
        m_folder.Write("v.h264", stream_bytes::H264Stream(5, 2));
        m_folder.Write("a.alaw", std::string(8000, '\xD5'));
    }

    bool Load(const std::string& options) {
        m_sdk.reset(GvxCreateAdapter());
        return m_sdk->Init(
            m_folder
                .Write("file.json",
                       R"({"media": {"demo": {"video": "v.h264", "audio": "a.alaw", "fps": 5)" + options + "}}}")
                .c_str());
    }
    void MakeLens(const std::string& options, const std::string& extend = R"({"media": "demo"})") {
        ASSERT_TRUE(Load(options)) << GvxPluginLastError();
        MainDeviceInfo info;
        info.strDevCode = "CAM001";
        info.strExtend = extend;
        CAdapterDevBase* device = nullptr;
        ASSERT_EQ(0, m_sdk->CreateDevice(info, device));
        m_device.reset(device);
        ASSERT_EQ(0, m_device->Init());
        CAdapterLensBase* lens = nullptr;
        ASSERT_EQ(0, m_device->CreateLens("CAM001_0", 0, device, lens));
        m_lens.reset(lens);
        ASSERT_EQ(0, m_lens->Init());
    }
    std::unique_ptr<CStreamParam> Negotiate(_TRANS_PROTOCOL protocol, std::uint32_t type = STREAM_TYPE_REAL_MAIN) {
        std::unique_ptr<CStreamParam> param(m_lens->CreateStreamParam("live-1"));
        param->m_nStreamID = type;
        param->m_nDstTransProtocol = protocol;
        EXPECT_EQ(0, m_lens->NegotiateStreamParam(param.get()));
        return param;
    }
    int Start(CStreamParam& param) { return m_lens->StartStream(&m_recorder, &PacketRecorder::Take, &param, false); }

    TempFolder m_folder;
    ScopedRecordingLogger m_log;
    PacketRecorder m_recorder;
    std::unique_ptr<CAdapterSdkBase, decltype(&GvxDestroyAdapter)> m_sdk{nullptr, &GvxDestroyAdapter};
    std::unique_ptr<CAdapterDevBase> m_device;
    std::unique_ptr<CAdapterLensBase> m_lens;
};

}  // namespace

TEST_F(FilePluginTest, SaysWhyItCannotStart) {
    std::filesystem::remove(m_folder.Path("a.alaw"));
    EXPECT_FALSE(Load(""));
    EXPECT_EQ("Medium 'demo': " + m_folder.Path("a.alaw") + " cannot be opened: No such file or directory.",
              std::string(GvxPluginLastError()));
}

TEST_F(FilePluginTest, RefusesADeviceWithoutItsMedium) {
    ASSERT_TRUE(Load(""));
    MainDeviceInfo info;
    info.strDevCode = "CAM001";
    info.strExtend = R"({"media": "other"})";
    auto* device = reinterpret_cast<CAdapterDevBase*>(this);
    EXPECT_EQ(ZVS_PARA_INVALID, m_sdk->CreateDevice(info, device));
    EXPECT_EQ(nullptr, device);
    EXPECT_TRUE(m_log->Contains("Device[CAM001]: There is no medium 'other'."));
}

TEST_F(FilePluginTest, ReportsItsChannels) {
    MakeLens("", R"({"media": ["demo", "demo"]})");
    GVX_DEVICE_ABILITY_INFO ability;
    ASSERT_EQ(0, m_device->GetDeviceAbility(ability));
    ASSERT_EQ(2u, ability.channels.size());
    EXPECT_EQ(1, ability.channels[1].nChannelId);
    EXPECT_EQ(320, ability.channels[1].nWidth);
    EXPECT_EQ(static_cast<std::uint32_t>(GVX_AUDIO_FORMAT_G711A), ability.channels[1].nAudioFormat);
    CAdapterDevBase* parent = m_device.get();
    CAdapterLensBase* lens = m_lens.get();
    EXPECT_EQ(ZVS_GVX_LENS_NOT_EXIST, m_device->CreateLens("CAM001_2", 2, parent, lens));
    EXPECT_EQ(nullptr, lens);
    EXPECT_EQ(ZVS_PARA_INVALID, m_device->CreateLens(std::string(33, 'x').c_str(), 1, parent, lens));
}

TEST_F(FilePluginTest, PlaysOnceAsFastAsItCan) {
    MakeLens(R"(, "loop": false, "speed": "max")");
    const auto param = Negotiate(RTP_OVER_UDP, STREAM_TYPE_REAL_SUB1);
    ASSERT_EQ(0, Start(*param));
    ASSERT_TRUE(m_log->WaitFor("has ended after 5 pictures"));
    EXPECT_EQ(0, m_lens->StopStream(param.get(), false));

    const auto packets = m_recorder.Packets();
    ASSERT_EQ(2u + 5 * 2 + 50, packets.size());  // parameter sets, slices, 20 ms of audio each
    EXPECT_EQ(5u, m_recorder.Pictures());
    std::uint32_t lastVideo = 0;
    for (const auto& packet : packets) {
        EXPECT_EQ(STREAM_TYPE_REAL_SUB1, packet.streamType);
        EXPECT_EQ(RTP_OVER_UDP, packet.protocol);
        EXPECT_EQ(packet.video ? 99 : 8, packet.payloadType);
        EXPECT_EQ(320, packet.width);
        lastVideo = packet.video ? packet.timestamp : lastVideo;
    }
    EXPECT_EQ(5u * 18000, lastVideo);
    EXPECT_EQ(FRAME_I, packets.front().frameType);
}

TEST_F(FilePluginTest, SendsWithoutAudioOverTcpWhenAudioIsTakenAway) {
    MakeLens(R"(, "loop": false, "speed": "max")");
    const auto param = Negotiate(RTP_OVER_TCP);
    param->m_nAudioFormat = 0;
    ASSERT_EQ(0, Start(*param));
    ASSERT_TRUE(m_log->WaitFor("has ended after 5 pictures"));
    for (const auto& packet : m_recorder.Packets()) {
        EXPECT_TRUE(packet.video);
        EXPECT_EQ(RTP_OVER_TCP, packet.protocol);
        EXPECT_EQ(STREAM_TYPE_REAL_MAIN, packet.streamType);
    }
    EXPECT_EQ(0, m_lens->StopStream(param.get(), false));
}

TEST_F(FilePluginTest, KeepsToItsFrameRate) {
    ScopedTestClock clock;
    MakeLens(R"(, "loop": true)");
    const auto param = Negotiate(RTP_OVER_UDP);
    param->m_nAudioFormat = 0;
    ASSERT_EQ(0, Start(*param));
    ASSERT_TRUE(WaitUntil([this] { return m_recorder.Pictures() == 1; }));
    for (std::size_t pictures = 2; pictures <= 4; ++pictures) {
        clock->AdvanceMs(199);
        EXPECT_EQ(pictures - 1, m_recorder.Pictures()) << "a picture came before it was due";
        clock->AdvanceMs(1);
        ASSERT_TRUE(WaitUntil([&] { return m_recorder.Pictures() == pictures; })) << pictures;
    }
    // An hour of standstill does not bring a burst: one picture is due, the next 0.2 s later.
    clock->AdvanceSeconds(3600);
    ASSERT_TRUE(WaitUntil([this] { return m_recorder.Pictures() == 5; }));
    clock->AdvanceMs(200);
    ASSERT_TRUE(WaitUntil([this] { return m_recorder.Pictures() == 6; }));
    EXPECT_EQ(0, m_lens->StopStream(param.get(), false));
    EXPECT_EQ(6u, m_recorder.Pictures());
}

TEST_F(FilePluginTest, NothingIsSentOnceStopHasReturned) {
    MakeLens(R"(, "loop": true, "speed": "max")");
    for (int round = 0; round < 20; ++round) {
        const auto param = Negotiate(RTP_OVER_UDP);
        auto recorder = std::make_unique<PacketRecorder>();
        ASSERT_EQ(0, m_lens->StartStream(recorder.get(), &PacketRecorder::Take, param.get(), true));
        ASSERT_TRUE(WaitUntil([&recorder] { return recorder->Count() > 0; }));
        EXPECT_EQ(0, m_lens->RequestKeyframe(param.get()));
        EXPECT_EQ(0, m_lens->StopStream(param.get(), true));
        EXPECT_EQ(nullptr, m_lens->getMidiaChannel(0)->m_pSendStreamFunc);
        recorder.reset();  // a late call would use it
    }
}

TEST_F(FilePluginTest, EndsWhenTheSocketIsGone) {
    MakeLens(R"(, "loop": true, "speed": "max")");
    m_recorder.SetResult(ZVS_GVX_OPEN_SOCKET_ERROR);
    const auto param = Negotiate(RTP_OVER_UDP);
    ASSERT_EQ(0, Start(*param));
    ASSERT_TRUE(m_log->WaitFor("Stream[live-1] ends: its socket is gone."));
    EXPECT_EQ(1u, m_recorder.Count());
    EXPECT_EQ(0, m_lens->StopStream(param.get(), false));
}

TEST_F(FilePluginTest, OneStreamForEachTypeAndTransport) {
    MakeLens(R"(, "loop": true, "speed": "100")");
    const auto udp = Negotiate(RTP_OVER_UDP);
    const auto tcp = Negotiate(RTP_OVER_TCP);
    ASSERT_EQ(0, Start(*udp));
    EXPECT_EQ(ZVS_GVX_STREAM_EXIST, Start(*udp));
    ASSERT_EQ(0, Start(*tcp));
    EXPECT_EQ(0, m_lens->StopStream(udp.get(), false));
    EXPECT_EQ(ZVS_GVX_STREAM_NOT_EXIST, m_lens->StopStream(udp.get(), false));
    EXPECT_EQ(ZVS_GVX_STREAM_NOT_EXIST, m_lens->RequestKeyframe(udp.get()));
    // The other stream goes on, and ends with the lens.
    const std::size_t before = m_recorder.Count();
    EXPECT_TRUE(WaitUntil([&] { return m_recorder.Count() > before + 100; }));
    m_lens.reset();
    EXPECT_EQ(2u, m_log->Count("has ended after"));
}

TEST_F(FilePluginTest, RefusesWhatItCannotSend) {
    MakeLens("");
    CStreamParam param;
    param.m_nDstTransProtocol = RTP_OVER_UDP;
    param.m_nStreamID = STREAM_TYPE_PLAYBACK1;
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, m_lens->NegotiateStreamParam(&param));
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, Start(param));
    param.m_nStreamID = STREAM_TYPE_REAL_MAIN;
    param.m_nDstTransProtocol = TCP;
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, m_lens->NegotiateStreamParam(&param));
    std::filesystem::remove(m_folder.Path("v.h264"));
    EXPECT_EQ(ZVS_OPEN_FILE_ERROR, Start(*Negotiate(RTP_OVER_UDP)));
    EXPECT_TRUE(m_log->Contains(m_folder.Path("v.h264") + " cannot be opened: No such file or directory."));
}

// Both forms of one script, over both transports: the messages that are due, each with its picture and the time of the
// picture before it.
TEST_F(FilePluginTest, MetadataLeavesWithTheVideoWhenItIsAskedFor) {
    ASSERT_TRUE(g_mediaPool.Init());
    const std::string jpeg = "\xFF\xD8" + std::string(3000, 'j');
    m_folder.Write("p.jpg", jpeg);
    m_folder.Write("m.json", R"({"messages": [
        {"time": 0.2, "kind": "plate", "form": "ex", "plate": "AB 123", "plate_picture": "p.jpg"},
        {"time": 0.6, "kind": "face", "faces": [{"id": 7, "picture": "p.jpg"}]},
        {"time": 0.1, "repeat": 0.5, "kind": "heartbeat", "form": "ex"}]})");
    MakeLens(R"(, "loop": false, "speed": "max", "metadata": "m.json")");
    for (const _TRANS_PROTOCOL protocol : {RTP_OVER_UDP, RTP_OVER_TCP}) {
        const std::unique_ptr<CStreamParam> param(m_lens->CreateStreamParam("live-1"));
        param->m_nStreamID = STREAM_TYPE_REAL_MAIN;
        param->m_nDstTransProtocol = protocol;
        param->m_nVedioAnalysePort = 20004;
        ASSERT_EQ(0, m_lens->NegotiateStreamParam(param.get()));
        EXPECT_EQ(20004u, param->m_nVedioAnalysePort);
        PacketRecorder recorder;
        ASSERT_EQ(0, m_lens->StartStream(&recorder, &PacketRecorder::Take, param.get(), false));
        ASSERT_TRUE(m_log->WaitFor("has ended after 5 pictures and 4 metadata messages."));
        m_log->Clear();
        std::vector<std::string> messages(1);
        std::vector<std::uint32_t> times;
        std::uint32_t pictureTime = 0;
        for (const PacketRecorder::Packet& packet : recorder.Packets()) {
            pictureTime = packet.video ? packet.timestamp : pictureTime;
            if (packet.payloadType != 107) {
                continue;
            }
            EXPECT_EQ(STREAM_TYPE_METADATA, packet.streamType);
            messages.back() += packet.bytes.substr(13);
            if ((static_cast<unsigned char>(packet.bytes[1]) & 0x80) != 0) {
                times.push_back(packet.timestamp == pictureTime ? packet.timestamp : 0);
                messages.emplace_back();
            }
        }
        ASSERT_EQ(5u, messages.size());
        EXPECT_THAT(messages[1], testing::AllOf(testing::HasSubstr("AB 123"), testing::HasSubstr(jpeg)));
        EXPECT_THAT(messages[2], testing::HasSubstr(jpeg));
        EXPECT_EQ("HTBT", messages[3].substr(0, 4)) << "for one time the order is that of the script";
        EXPECT_EQ(2u * 18000, times[1]) << "of the picture at 0.2 s";
        EXPECT_EQ(4u * 18000, times[2]) << "of the picture at 0.6 s";
        // The stream has ended and is not stopped: the lens's metadata is still its own.
        const auto other = Negotiate(RTP_OVER_UDP, STREAM_TYPE_REAL_SUB1);
        other->m_nVedioAnalysePort = 20006;
        EXPECT_EQ(ZVS_GVX_STREAM_EXIST, Start(*other));
        EXPECT_EQ(0, m_lens->StopStream(param.get(), false));
    }
    g_mediaPool.UnInit();
}
