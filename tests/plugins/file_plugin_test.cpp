#include "gvx_common/adapter/gvx_adapter_interface.h"
#include "gvx_common/adapter/gvx_plugin.h"
#include "gvx_common/adapter/gvx_reason.h"
#include "gvx_common/media_memory/MediaMemPool.h"
#include "gvx_common/records/ptz_records.h"
#include "gvx_common/records/recording_records.h"
#include "gvx_common/records/stream_param.h"
#include "support/caught_frames.h"
#include "support/recording_logger.h"
#include "support/sent_packets.h"
#include "support/stream_bytes.h"
#include "support/temp_folder.h"
#include "support/test_clock.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace {

// What a lens sends: give Take as the send function and the recorder as the user info. Any thread.
class PacketRecorder {
public:
    static int Take(MEDIA_DATA* data, STREAM_TYPE_EX* streamType) {
        auto& self = *static_cast<PacketRecorder*>(data->pUserInfo);
        const auto* bytes = static_cast<const unsigned char*>(data->pDataBuf);
        const std::size_t size = data->nVideoSize + data->nAudioSize + data->nMetaDataSize;
        const std::lock_guard<std::mutex> guard(self.m_mutex);
        self.m_packets.push_back({Bytes(bytes, bytes + size), *data, *streamType});
        return self.result;
    }

    std::vector<SentPacket> All() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_packets;
    }
    // Distinct timestamps of video: pictures, as a receiver counts them.
    std::size_t Pictures() const {
        std::set<unsigned int> timeStamps;
        for (const SentPacket& packet : All()) {
            if (packet.media.nVideoSize != 0) {
                timeStamps.insert(packet.TimeStamp());
            }
        }
        return timeStamps.size();
    }

    std::atomic<int> result{0};  // what Take answers

private:
    mutable std::mutex m_mutex;
    std::vector<SentPacket> m_packets;  // Guarded by m_mutex.
};

// What the plug-in reports of its devices.
std::mutex g_reportMutex;
std::vector<ADAPTER_COMMON_MESSAGE> g_reports;  // Guarded by g_reportMutex.

void TakeReport(ADAPTER_COMMON_MESSAGE& message) {
    const std::lock_guard<std::mutex> lock(g_reportMutex);
    g_reports.push_back(message);
}

// Takes the reports that have come.
std::vector<ADAPTER_COMMON_MESSAGE> Reports() {
    const std::lock_guard<std::mutex> lock(g_reportMutex);
    return std::exchange(g_reports, {});
}

// The plug-in with one medium "demo": 5 pictures of 2 slices, 0.2 s each, and 1 s of G.711A audio.
class FilePluginTest : public testing::Test {
protected:
    FilePluginTest() {
        m_folder.Write("v.h264", stream_bytes::H264Stream(5, 2));
        m_folder.Write("a.alaw", std::string(8000, '\xD5'));
    }

    bool Load(const std::string& options) {
        m_sdk.reset(GvxCreateAdapter());
        const std::string config = R"({"media": {"demo": {"video": "v.h264", "audio": "a.alaw", "fps": 5)" + options;
        return m_sdk->Init(m_folder.Write("file.json", config + "}}}").c_str());
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
    std::unique_ptr<CStreamParam> Negotiate(_TRANS_PROTOCOL protocol, std::uint32_t type = STREAM_TYPE_REAL_MAIN,
                                            std::uint32_t metadataPort = 0) {
        std::unique_ptr<CStreamParam> param(m_lens->CreateStreamParam("live-1"));
        param->m_nStreamID = type;
        param->m_nDstTransProtocol = protocol;
        param->m_nVedioAnalysePort = metadataPort;
        EXPECT_EQ(0, m_lens->NegotiateStreamParam(param.get()));
        return param;
    }
    // All packets of a stream that ends with that line.
    std::vector<SentPacket> Play(CStreamParam& param, const char* end) {
        PacketRecorder recorder;
        m_log->Clear();
        EXPECT_EQ(0, m_lens->StartStream(&recorder, &PacketRecorder::Take, &param, false));
        EXPECT_TRUE(m_log->WaitFor(end));
        return recorder.All();
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

TEST_F(FilePluginTest, SaysWhyItCannotStartOrMakeADevice) {
    ASSERT_TRUE(Load(""));
    MainDeviceInfo info;
    info.strDevCode = "CAM001";
    info.strExtend = R"({"media": "other"})";
    auto* device = reinterpret_cast<CAdapterDevBase*>(this);
    EXPECT_EQ(ZVS_PARA_INVALID, m_sdk->CreateDevice(info, device));
    EXPECT_EQ(nullptr, device);
    EXPECT_EQ(GvxTakeReason(), "There is no medium 'other'.");
    std::filesystem::remove(m_folder.Path("a.alaw"));
    EXPECT_FALSE(Load(""));
    EXPECT_EQ(m_folder.Path("file.json") + ": Medium 'demo': " + m_folder.Path("a.alaw") +
                  " cannot be opened: No such file or directory.",
              std::string(GvxPluginLastError()));
}

TEST_F(FilePluginTest, ReportsItsChannelsAndRefusesWhatItCannotSend) {
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

    CStreamParam param;
    param.m_nDstTransProtocol = RTP_OVER_UDP;
    param.m_nStreamID = STREAM_TYPE_METADATA;
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, m_lens->NegotiateStreamParam(&param));
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, Start(param));
    param.m_nStreamID = STREAM_TYPE_REAL_MAIN;
    param.m_nDstTransProtocol = TCP;
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, m_lens->NegotiateStreamParam(&param));
    std::filesystem::remove(m_folder.Path("v.h264"));
    EXPECT_EQ(ZVS_OPEN_FILE_ERROR, Start(*Negotiate(RTP_OVER_UDP)));
}

TEST_F(FilePluginTest, PlaysOnceAsFastAsItCan) {
    MakeLens(R"(, "loop": false, "speed": "max")");
    for (const bool withAudio : {true, false}) {
        const _TRANS_PROTOCOL protocol = withAudio ? RTP_OVER_UDP : RTP_OVER_TCP;
        const STREAM_TYPE_EX type = withAudio ? STREAM_TYPE_REAL_SUB1 : STREAM_TYPE_REAL_MAIN;
        const auto param = Negotiate(protocol, type);
        param->m_nAudioFormat = withAudio ? param->m_nAudioFormat : 0;
        const auto packets = Play(*param, "has ended after 5 pictures");
        EXPECT_EQ(0, m_lens->StopStream(param.get(), false));
        // Parameter sets, slices, 20 ms of audio each.
        ASSERT_EQ(2u + 5 * 2 + (withAudio ? 50 : 0), packets.size());
        unsigned int lastVideo = 0;
        for (const SentPacket& packet : packets) {
            EXPECT_EQ(type, packet.streamType);
            EXPECT_EQ(protocol, static_cast<int>(packet.media.eTransProtocol));
            EXPECT_EQ(320, static_cast<int>(packet.media.nWidth));
            const bool video = packet.media.nVideoSize != 0;
            EXPECT_EQ(video ? 99u : 8u, packet.PayloadType());
            lastVideo = video ? packet.TimeStamp() : lastVideo;
        }
        EXPECT_EQ(5u * 18000, lastVideo);
        EXPECT_EQ(FRAME_I, static_cast<int>(packets.front().media.FrameType));
    }
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
        ASSERT_TRUE(WaitUntil([&recorder] { return recorder->All().size() > 0; }));
        EXPECT_EQ(0, m_lens->RequestKeyframe(param.get()));
        EXPECT_EQ(0, m_lens->StopStream(param.get(), true));
        EXPECT_EQ(nullptr, m_lens->getMidiaChannel(0)->m_pSendStreamFunc);
        recorder.reset();  // a late call would use it
    }
    // A socket that is gone ends the stream itself.
    m_recorder.result = ZVS_GVX_OPEN_SOCKET_ERROR;
    const auto param = Negotiate(RTP_OVER_UDP);
    ASSERT_EQ(0, Start(*param));
    ASSERT_TRUE(m_log->WaitFor("Stream[live-1] ends: its socket is gone."));
    EXPECT_EQ(1u, m_recorder.All().size());
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
    const std::size_t before = m_recorder.All().size();
    EXPECT_TRUE(WaitUntil([&] { return m_recorder.All().size() > before + 100; }));
    m_lens.reset();
    EXPECT_EQ(2u, m_log->Count("has ended after"));
}

TEST_F(FilePluginTest, MetadataLeavesWithTheVideoWhenItIsAskedFor) {
    ASSERT_TRUE(g_mediaPool.Init());
    m_folder.Write("p.jpg", "\xFF\xD8" + std::string(3000, 'j'));
    m_folder.Write("m.json", R"({"messages": [
        {"time": 0.2, "kind": "plate", "form": "ex", "plate": "AB 123", "plate_picture": "p.jpg"},
        {"time": 0.6, "kind": "face", "faces": [{"id": 7, "picture": "p.jpg"}]},
        {"time": 0.1, "repeat": 0.5, "kind": "heartbeat", "form": "ex"}]})");
    MakeLens(R"(, "loop": false, "speed": "max", "metadata": "m.json")");
    for (const _TRANS_PROTOCOL protocol : {RTP_OVER_UDP, RTP_OVER_TCP}) {
        const auto param = Negotiate(protocol, STREAM_TYPE_REAL_MAIN, 20004);
        EXPECT_EQ(20004u, param->m_nVedioAnalysePort);
        std::vector<std::pair<std::string, unsigned int>> messages;  // what follows the heads, and the time
        std::string message;
        unsigned int pictureTime = 0;
        for (const SentPacket& packet : Play(*param, "has ended after 5 pictures and 4 metadata messages.")) {
            pictureTime = packet.media.nVideoSize != 0 ? packet.TimeStamp() : pictureTime;
            if (packet.streamType == STREAM_TYPE_METADATA) {
                message.append(packet.bytes.begin() + static_cast<long>(packet.RtpAt()) + 13, packet.bytes.end());
            }
            if (packet.streamType == STREAM_TYPE_METADATA && packet.Marked()) {
                messages.emplace_back(std::exchange(message, {}), packet.TimeStamp() == pictureTime ? pictureTime : 0);
            }
        }
        ASSERT_EQ(4u, messages.size());
        EXPECT_NE(std::string::npos, messages[1].first.find("AB 123"));
        EXPECT_EQ("HTBT", messages[3].first.substr(0, 4)) << "for one time the order is that of the script";
        EXPECT_EQ(2u * 18000, messages[1].second) << "of the picture at 0.2 s";
        EXPECT_EQ(4u * 18000, messages[2].second) << "of the picture at 0.6 s";
        // The stream has ended and is not stopped: the lens's metadata is still its own.
        EXPECT_EQ(ZVS_GVX_STREAM_EXIST, Start(*Negotiate(RTP_OVER_UDP, STREAM_TYPE_REAL_SUB1, 20006)));
        EXPECT_EQ(0, m_lens->StopStream(param.get(), false));
    }
    g_mediaPool.UnInit();
}

TEST_F(FilePluginTest, PlaysARangeOfItsRecordingAndDoesAsItIsTold) {
    ScopedTestClock clock;
    m_folder.Write("v.h264", stream_bytes::H264Stream(20, 1, 5));
    MakeLens(R"(, "recorded": "20260101000000")");
    m_sdk->SetCommonMessageCallback(&TakeReport);
    const std::unique_ptr<CStreamParam> param(m_lens->CreateStreamParam("replay"));
    param->m_nStreamID = STREAM_TYPE_PLAYBACK1;
    param->m_nDstTransProtocol = RTP_OVER_UDP;
    param->m_strPuRecordStartTime = "20260101000009";
    param->m_strPuRecordEndTime = "20260101000010";
    EXPECT_EQ(ZVS_PARA_INVALID, m_lens->NegotiateStreamParam(param.get()));
    EXPECT_EQ(GvxTakeReason(), "Nothing was recorded from 20260101000009 to 20260101000010.");
    param->m_strPuRecordStartTime = "20260101000001";
    param->m_strPuRecordEndTime = "20260101000003";
    ASSERT_EQ(0, m_lens->NegotiateStreamParam(param.get()));
    param->m_nAudioFormat = 0;
    const auto control = [&](STREAM_CONTROL_CMD command, double speed = 1, std::uint32_t position = 0) {
        return m_lens->PlayBackStreamControl({command, speed, position}, param.get());
    };
    const auto pictures = [this](std::size_t count) {
        return WaitUntil([&] { return m_recorder.Pictures() == count; });
    };
    ASSERT_EQ(0, Start(*param));
    ASSERT_TRUE(pictures(1));
    clock->AdvanceMs(200);
    ASSERT_TRUE(pictures(2));
    ASSERT_EQ(0, control(STREAM_CONTROL_PAUSE));
    clock->AdvanceSeconds(10);
    ASSERT_EQ(0, control(STREAM_CONTROL_PLAY));
    clock->AdvanceMs(199);
    EXPECT_EQ(2u, m_recorder.Pictures()) << "time went on while the stream stood still";
    clock->AdvanceMs(1);
    ASSERT_TRUE(pictures(3));
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, control(STREAM_CONTROL_SPEED, -1));
    ASSERT_EQ(0, control(STREAM_CONTROL_SPEED, 2));
    clock->AdvanceMs(100);
    ASSERT_TRUE(pictures(4));
    ASSERT_EQ(0, control(STREAM_CONTROL_SEEK, 1, 2));  // to picture 10 of 5 to 14
    ASSERT_TRUE(pictures(5));
    std::vector<ADAPTER_COMMON_MESSAGE> reports;
    ASSERT_TRUE(WaitUntil([&] {
        clock->AdvanceMs(10);
        reports = Reports();
        return !reports.empty();
    }));
    EXPECT_EQ(9u, m_recorder.Pictures());
    EXPECT_EQ(ADAPTER_REPORT_RECORDING_END, static_cast<int>(reports[0].ExceptionType));
    EXPECT_STREQ("replay", reports[0].chServiceID);
    EXPECT_STREQ("CAM001", reports[0].chDevId);
    EXPECT_EQ(0, m_lens->StopStream(param.get(), false));
}

TEST_F(FilePluginTest, ListsItsRecordingTakesPicturesAndKeepsPresets) {
    m_folder.Write("p.jpg", "\xFF\xD8 picture");
    MakeLens(R"(, "recorded": "20260101000000", "picture": "p.jpg")");
    m_sdk->SetCommonMessageCallback(&TakeReport);
    GET_PU_RECORD_INFO search;
    std::list<_GET_PU_RECORD_DATA_LIST> list;
    ASSERT_EQ(0, m_lens->GetPuRecordList(search, list));
    ASSERT_EQ(1u, list.size());
    EXPECT_EQ("demo 20260101000000 20260101000001",
              list.front().strContentID + " " + list.front().strStartTime + " " + list.front().strEndTime);
    search.strStartTime = "20260101000001";
    ASSERT_EQ(0, m_lens->GetPuRecordList(search, list));
    EXPECT_TRUE(list.empty());

    PU_SNAP_CONF_REQ request{};
    request.nSnapNum = 2;
    request.bIsUpload = true;
    request.sessionId = 77;
    ASSERT_EQ(0, m_lens->VcuSnapShotReqInfo(request));
    const auto reports = Reports();
    ASSERT_EQ(2u, reports.size());
    EXPECT_EQ(ADAPTER_REPORT_PICTURE_TAKEN, static_cast<int>(reports[0].ExceptionType));
    EXPECT_EQ(77u, std::uint64_t{reports[1].ulIdentifyID});
    EXPECT_STRNE(reports[0].stContentId, reports[1].stContentId);
    PU_UPLOAD_IMAGE_RSP address;
    address.strContentID = reports[0].stContentId;
    address.nResult = ZVS_FAIL;
    EXPECT_EQ(ZVS_FAIL, m_device->VcuGetUploadImgRsp(address));
    EXPECT_EQ(ZVS_PARA_INVALID, m_device->VcuGetUploadImgRsp(address)) << "a picture without an address is dropped";

    MSG_PTZ_SET_PRESET_REQ preset;
    preset.strPresetName = "gate";
    ASSERT_EQ(0, m_lens->SetPresetParam(preset));
    EXPECT_EQ(1u, preset.uiPresetIndex);
    std::list<_MSG_PTZ_GET_PRESET_RSP> presets;
    ASSERT_EQ(0, m_lens->GetPresetParam(presets));
    EXPECT_EQ("gate", presets.front().strPresetName);
    EXPECT_EQ(0, m_lens->DelPresetParam({1}));
    EXPECT_EQ(ZVS_PARA_INVALID, m_lens->DelPresetParam({1}));
}
