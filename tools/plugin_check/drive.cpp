#include "plugin_check/drive.h"

#include "base/fixed_text.h"
#include "base/json_io.h"
#include "base/log.h"
#include "base/zvs_error.h"
#include "gvx_common/adapter/gvx_adapter_interface.h"
#include "gvx_common/adapter/gvx_adapter_sdk.h"
#include "gvx_common/adapter/plugin_library.h"
#include "gvx_common/event/gvx_reactor.h"
#include "gvx_common/media_memory/MediaMemPool.h"
#include "gvx_common/records/recording_records.h"
#include "gvx_common/records/stream_param.h"
#include "plugin_check/journal.h"
#include "plugin_check/operations.h"
#include "plugin_check/stream_watch.h"

#include <ace/Message_Block.h>
#include <json/value.h>

#include <arpa/inet.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <vector>

namespace plugin_check {

using gvx::PluginLibrary;

namespace {

constexpr int kPictures = 10;
constexpr std::size_t kMostLenses = 4;
// How long the plug-in has to show that it keeps silent.
constexpr std::chrono::milliseconds kSilence(300);
// A search that nobody answers takes some 15 s.
constexpr std::chrono::seconds kSearchLimit(60);
constexpr int kTalkBlocks = 5;
constexpr std::size_t kTalkBlockBytes = 160;  // 20 ms of G.711
constexpr std::uint32_t kUnknownType = 9999;
constexpr const char* kSdk = "plug-in";

// What the plug-in reports by its callbacks. They know no object, so all of this belongs to the process.
struct Reports {
    std::mutex mutex;
    std::set<std::string> living;  // Guarded by mutex; codes of devices.
    bool adapterGone = false;      // Guarded by mutex.
    int alarms = 0;                // Guarded by mutex.
    int lastPercent = 0;           // Guarded by mutex.
    bool searching = false;        // Guarded by mutex.
    std::size_t found = 0;         // Guarded by mutex.
    std::string foundText;         // Guarded by mutex.
    Journal* journal = nullptr;
};
Reports g_reports;
// Frames in which the core has found no start code; its log is the one place that tells.
std::atomic<int> g_framesWithoutStartCode{0};

// Reports must name a device that lives.
void JudgeReporter(const char* callback, const std::string& device) {
    if (g_reports.adapterGone) {
        g_reports.journal->Broken(kSdk, callback, "is called after the plug-in object is destroyed");
    } else if (g_reports.living.count(device) == 0) {
        g_reports.journal->Broken(kSdk, callback, "is called for '" + device + "', which is no device or is deleted");
    }
}

void OnCommonMessage(ADAPTER_COMMON_MESSAGE& message) {
    const std::lock_guard<std::mutex> lock(g_reports.mutex);
    JudgeReporter("the common message callback",
                  std::string(message.chDevId, strnlen(message.chDevId, sizeof(message.chDevId))));
}

void OnAlarm(const char* device, const char* json) {
    const std::lock_guard<std::mutex> lock(g_reports.mutex);
    JudgeReporter("the alarm callback", device == nullptr ? "" : device);
    Json::Value report;
    std::string error;
    if (json == nullptr || !gvx::ParseJson(json, std::strlen(json), report, &error) ||
        !report["AlarmType"].isString() || !report["Action"].isInt()) {
        g_reports.journal->Broken(kSdk, "the alarm callback", "a report is no JSON object with AlarmType and Action");
    }
    ++g_reports.alarms;
}

void OnDiscovered(CDiscoveryDeviceInfo* report) {
    const std::lock_guard<std::mutex> lock(g_reports.mutex);
    if (report == nullptr || !g_reports.searching) {
        g_reports.journal->Broken(kSdk, "the discovery callback",
                                  report == nullptr ? "a report is null" : "is called while nothing is searched");
        return;
    }
    if (report->iPercent < g_reports.lastPercent || report->iPercent > 100) {
        g_reports.journal->Broken(
            kSdk, "the discovery callback",
            "percentages go from " + std::to_string(g_reports.lastPercent) + " to " + std::to_string(report->iPercent));
    }
    g_reports.lastPercent = report->iPercent;
    for (const DeviceDiscoveryInfo& found : report->DiscDevInfoList) {
        ++g_reports.found;
        g_reports.foundText +=
            std::string(" ") + found.szIp + ":" + std::to_string(found.uiPort) + " \"" + found.szFac + "\"";
    }
}

// Counts what only the log tells, and shows lines from warnings up when it is asked to.
class ListeningLogger : public IOMLogger {
public:
    explicit ListeningLogger(bool shows) : m_shows(shows) {}
    bool IsEnabled(int level) const noexcept override {
        return level == OM_LOG_DEBUG || (m_shows && level <= OM_LOG_WARNING);
    }
    void VLog(int level, const char* title, const OMLogPlace&, const char* format, va_list args) override
        __attribute__((format(printf, 5, 0))) {
        if (level <= OM_LOG_WARNING) {
            std::fprintf(stderr, "[%s] ", title);
            std::vfprintf(stderr, format, args);
            std::fputc('\n', stderr);
        }
    }
    void VDebug(const OMLogPlace&, const char* format, va_list) override __attribute__((format(printf, 3, 0))) {
        if (std::strstr(format, "Can not found Nalu Head") != nullptr) {
            ++g_framesWithoutStartCode;
        }
    }

private:
    const bool m_shows;
};

// A device with its lenses, on a thread of its own as in a gateway.
class DeviceDrive {
public:
    DeviceDrive(const DriveOptions& options, Journal& journal, CAdapterSdkBase& sdk, int number)
        : m_options(options),
          m_journal(journal),
          m_sdk(sdk),
          m_code("CHECK00" + std::to_string(number)),
          m_lane("device " + std::to_string(number)) {}

    void RunWhole() {
        if (Make()) {
            MakeOddLenses();
            for (CAdapterLensBase* lens : m_lenses) {
                Stream(*lens, false);
                Stream(*lens, true);
            }
            StopInStart(*m_lenses.front());
            SendWrongArguments(*m_lenses.front());
            Snapshot(*m_lenses.front());
            PlayBack(*m_lenses.front());
            Talk(*m_lenses.front());
            CallPlain(DeviceOperations(), *m_device);
            CallPlain(LensOperations(), *m_lenses.front());
            m_journal.Call(m_lane, "IsAllowSendAlarm", [this] {
                m_device->IsAllowSendAlarm();
                return 0;
            });
        }
        Delete();
    }

    void RunStreams() {
        if (Make()) {
            Stream(*m_lenses.front(), false);
        }
        Delete();
    }

private:
    using Param = std::unique_ptr<CStreamParam>;

    bool Make() {
        MainDeviceInfo info;
        info.strDevCode = m_code;
        info.strIP = m_options.ip;
        info.nPort = m_options.port;
        info.strUserName = m_options.user;
        info.strPassword = m_options.password;
        info.strExtend = m_options.extend;
        {
            const std::lock_guard<std::mutex> lock(g_reports.mutex);
            g_reports.living.insert(m_code);
        }
        const int code = m_journal.Call(m_lane, "CreateDevice", [&] { return m_sdk.CreateDevice(info, m_device); });
        if ((code == 0) != (m_device != nullptr)) {
            m_journal.Broken(m_lane, "CreateDevice", "its answer and the pointer do not agree");
        }
        if (code != 0 || m_device == nullptr) {
            m_device = nullptr;
            return Cannot("CreateDevice", "no device was made, so that nothing more could be tried");
        }
        m_device->SetMainDevID(info.strDevCode);
        m_device->SetIP(info.strIP);
        m_device->SetPort(info.nPort);
        m_device->SetUserName(info.strUserName);
        m_device->SetPassword(info.strPassword);
        m_device->SetSCULinkID("SCU#001");
        m_device->SetDevReactor(&m_reactor);
        if (m_journal.Call(m_lane, "Init", [this] { return m_device->Init(); }) != 0) {
            return Cannot("Init", "the device did not log in, so that nothing more could be tried");
        }
        GVX_DEVICE_ABILITY_INFO ability;
        m_journal.Call(m_lane, "GetDeviceAbility", [&] { return m_device->GetDeviceAbility(ability); });
        if (ability.channels.empty()) {
            ability.channels.emplace_back();  // a plug-in that tells nothing serves the lens that is asked for
        }
        for (const GVX_CHANNEL_ABILITY_INFO& channel : ability.channels) {
            if (m_lenses.size() < kMostLenses) {
                MakeLens(static_cast<short>(channel.nChannelId));
            }
        }
        return !m_lenses.empty() || Cannot("CreateLens", "there is no lens, so that nothing more could be tried");
    }

    void MakeLens(short channel) {
        const std::string lensCode = m_code + "_" + std::to_string(channel);
        CAdapterLensBase* lens = nullptr;
        const int code = m_journal.Call(m_lane, "CreateLens", [&] {
            CAdapterDevBase* parent = m_device;
            return m_device->CreateLens(lensCode.c_str(), channel, parent, lens);
        });
        if ((code == 0) != (lens != nullptr)) {
            m_journal.Broken(m_lane, "CreateLens", "its answer and the pointer do not agree");
        }
        if (code == 0 && lens != nullptr) {
            m_lenses.push_back(lens);
            m_journal.Call(m_lane, "Init of a lens", [lens] { return lens->Init(); });
        }
    }

    void MakeOddLenses() {
        CAdapterLensBase* lens = nullptr;
        m_journal.MustRefuse(m_lane, "CreateLens of no channel", [&] {
            CAdapterDevBase* parent = m_device;
            return m_device->CreateLens("nobody", kUnknownType, parent, lens);
        });
        delete lens;
    }

    static void Ask(CStreamParam& param, std::uint32_t type, bool overTcp) {
        param.m_nStreamID = type;
        param.m_nSrcTransProtocol = overTcp ? RTP_OVER_TCP : RTP_OVER_UDP;
        param.m_nDstTransProtocol = param.m_nSrcTransProtocol;
        param.m_nDstVideoIP = INADDR_LOOPBACK;
        param.m_nDstVideoPort = 20000;
        param.m_nDstAudioIP = INADDR_LOOPBACK;
        param.m_nDstAudioPort = 20002;
        param.m_nMediaTransMode = MU_MEDIA_DIRECT_TRANS;
    }

    Param Negotiate(CAdapterLensBase& lens, std::uint32_t type, bool overTcp, std::uint32_t business = 0) {
        Param param;
        m_journal.Call(m_lane, "CreateStreamParam", [&] {
            param.reset(lens.CreateStreamParam("check"));
            return param == nullptr ? ZVS_ALLOC_MEMORY_ERROR : ZVS_SUCCEED;
        });
        if (param == nullptr) {
            return param;
        }
        Ask(*param, type, overTcp);
        param->m_nBusinessType = business;
        param->m_strSrcCode = lens.GetSubDevID();
        const auto agree = [&] { return lens.NegotiateStreamParam(param.get()); };
        const auto special = [&] { return lens.CheckSpecialCase(param.get()); };
        if (m_journal.Call(m_lane, "NegotiateStreamParam", agree) != 0 ||
            m_journal.Call(m_lane, "CheckSpecialCase", special) != 0) {
            param.reset();
        }
        return param;
    }

    StreamWatch& Watch(const CStreamParam& param) {
        m_watches.push_back(&StreamWatch::Begin(param.m_nVideoPayLoadType, param.m_nAudioPayLoadType,
                                                param.m_nDstTransProtocol == RTP_OVER_TCP));
        return *m_watches.back();
    }

    int Start(CAdapterLensBase& lens, CStreamParam& param, StreamWatch& watch,
              const std::string& what = "StartStream") {
        return m_journal.Call(m_lane, what,
                              [&] { return lens.StartStream(watch.UserInfo(), &StreamWatch::Send, &param, false); });
    }

    // The stream is over whatever StopStream answers.
    void Stop(CAdapterLensBase& lens, CStreamParam& param, StreamWatch& watch) {
        m_journal.Call(m_lane, "StopStream", [&] { return lens.StopStream(&param, false); });
        watch.Close("StopStream has returned");
    }

    void Tell(StreamWatch& watch, const char* operation) {
        for (const std::string& fault : watch.TakeFaults()) {
            m_journal.Broken(m_lane, operation, fault);
        }
    }

    void Stream(CAdapterLensBase& lens, bool overTcp) {
        const Param param = Negotiate(lens, STREAM_TYPE_REAL_MAIN, overTcp);
        if (param == nullptr) {
            return;
        }
        StreamWatch& watch = Watch(*param);
        const int without = g_framesWithoutStartCode;
        if (Start(lens, *param, watch) != 0) {
            return;
        }
        m_journal.Call(m_lane, "EncodeRspSDP", [&] {
            std::string sdp;
            return lens.EncodeRspSDP(param.get(), sdp);
        });
        m_journal.Call(m_lane, "EncodeRTSPUrl", [&] {
            std::string url;
            return lens.EncodeRTSPUrl(param.get(), url);
        });
        const auto wait = [&](int count) {
            const auto end = std::chrono::steady_clock::now() + m_options.pictureLimit;
            while (watch.Pictures() < count && g_framesWithoutStartCode == without &&
                   std::chrono::steady_clock::now() < end) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
            return watch.Pictures();
        };
        const int pictures = wait(kPictures);
        m_journal.Call(m_lane, "RequestKeyframe", [&] { return lens.RequestKeyframe(param.get()); });
        const int more = pictures < kPictures ? pictures : wait(pictures + 2);
        m_journal.MustRefuse(m_lane, "StartStream of a stream that runs", [&] {
            return lens.StartStream(watch.UserInfo(), &StreamWatch::Send, param.get(), false);
        });
        Stop(lens, *param, watch);
        std::this_thread::sleep_for(kSilence);
        const char* const transport = overTcp ? "a stream over TCP" : "a stream over UDP";
        if (g_framesWithoutStartCode > without) {
            m_journal.Broken(m_lane, transport, "frames come without a start code of four bytes, and are not sent");
        } else if (more < kPictures) {
            m_journal.Broken(m_lane, transport,
                             watch.Packets() > kPictures
                                 ? "many packets have one time stamp: nTimeTick does not go on"
                                 : "fewer than " + std::to_string(kPictures) + " pictures came");
        }
        Tell(watch, transport);
        m_journal.Figure(
            m_lane, transport,
            std::to_string(more) + " pictures and " + std::to_string(watch.Packets()) + " packets were looked at");
        m_journal.MustRefuse(m_lane, "StopStream of a stopped stream",
                             [&] { return lens.StopStream(param.get(), false); });
    }

    // A stop that comes while the plug-in still begins.
    void StopInStart(CAdapterLensBase& lens) {
        for (int i = 0; i < 3; ++i) {
            const Param param = Negotiate(lens, STREAM_TYPE_REAL_MAIN, false);
            if (param == nullptr) {
                return;
            }
            StreamWatch& watch = Watch(*param);
            if (Start(lens, *param, watch, "StartStream with a stop behind it") == 0) {
                Stop(lens, *param, watch);
            }
            std::this_thread::sleep_for(kSilence / 3);
            Tell(watch, "a stop in the midst of a start");
        }
    }

    void SendWrongArguments(CAdapterLensBase& lens) {
        CStreamParam odd("odd");
        Ask(odd, kUnknownType, false);
        StreamWatch& watch = Watch(odd);
        m_journal.MustRefuse(m_lane, "StartStream of an unknown type",
                             [&] { return lens.StartStream(watch.UserInfo(), &StreamWatch::Send, &odd, false); });
        m_journal.MustRefuse(m_lane, "StartStream without parameters",
                             [&] { return lens.StartStream(watch.UserInfo(), &StreamWatch::Send, nullptr, false); });
        CStreamParam plain("plain");
        Ask(plain, STREAM_TYPE_REAL_MAIN, false);
        m_journal.MustRefuse(m_lane, "StartStream without a send function",
                             [&] { return lens.StartStream(watch.UserInfo(), nullptr, &plain, false); });
        m_journal.MustRefuse(m_lane, "NegotiateStreamParam without parameters",
                             [&] { return lens.NegotiateStreamParam(nullptr); });
        m_journal.MustRefuse(m_lane, "StopStream without parameters", [&] { return lens.StopStream(nullptr, false); });
        m_journal.MustRefuse(m_lane, "StopStream of an unknown type", [&] { return lens.StopStream(&odd, true); });
        m_journal.MustRefuse(m_lane, "RequestKeyframe without parameters",
                             [&] { return lens.RequestKeyframe(nullptr); });
        Tell(watch, "a stream that did not start");
    }

    void Snapshot(CAdapterLensBase& lens) {
        PU_SNAP_CONF_REQ request{};
        if (!gvx::PutText(request.stCamerCode, lens.GetSubDevID())) {
            m_journal.Broken(m_lane, "GetSubDevID", "The lens's code is longer than a request's field.");
            return;
        }
        request.nSnapNum = 1;
        request.timeStamp = static_cast<std::uint64_t>(std::time(nullptr)) * 1000;
        m_journal.Call(m_lane, "VcuSnapShotReqInfo", [&] { return lens.VcuSnapShotReqInfo(request); });
    }

    void PlayBack(CAdapterLensBase& lens) {
        GET_PU_RECORD_INFO asked;
        std::list<_GET_PU_RECORD_DATA_LIST> recordings;
        const int listed =
            m_journal.Call(m_lane, "GetPuRecordList", [&] { return lens.GetPuRecordList(asked, recordings); });
        m_journal.Call(m_lane, "PopFrontRecordIndex", [&] {
            CStreamParam* next = nullptr;
            const int code = lens.PopFrontRecordIndex(next);
            delete next;
            return code;
        });
        if (listed != 0 || recordings.empty()) {
            return;
        }
        const _GET_PU_RECORD_DATA_LIST& first = recordings.front();
        const Param param = Negotiate(lens, STREAM_TYPE_PLAYBACK1, false, SERVICE_TYPE_PU_PLAYBACK);
        if (param == nullptr) {
            return;
        }
        param->m_strRecordFileName = first.strContentID;
        param->m_strPuRecordStartTime = first.strStartTime;
        param->m_strPuRecordEndTime = first.strEndTime;
        StreamWatch& watch = Watch(*param);
        if (Start(lens, *param, watch, "StartStream of a recording") != 0) {
            return;
        }
        const auto end = std::chrono::steady_clock::now() + m_options.pictureLimit;
        while (watch.Pictures() == 0 && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        if (watch.Pictures() == 0) {
            m_journal.Broken(m_lane, "StartStream of a recording", "no picture came");
        }
        for (const auto& [name, command] : {std::pair<const char*, STREAM_CONTROL_CMD>{"pause", STREAM_CONTROL_PAUSE},
                                            {"seek", STREAM_CONTROL_SEEK},
                                            {"speed", STREAM_CONTROL_SPEED},
                                            {"play", STREAM_CONTROL_PLAY}}) {
            STREAM_CONTROL_PARAM_S control;
            control.eCmd = command;
            control.dSpeed = command == STREAM_CONTROL_SPEED ? 2 : 1;
            m_journal.Call(m_lane, std::string("PlayBackStreamControl, ") + name,
                           [&] { return lens.PlayBackStreamControl(control, param.get()); });
        }
        Stop(lens, *param, watch);
        std::this_thread::sleep_for(kSilence);
        // A seek may lead back, so only what follows the stop is wrong in any case.
        for (const std::string& fault : watch.TakeFaults()) {
            if (fault.find("time stamps") == std::string::npos) {
                m_journal.Broken(m_lane, "a recording", fault);
            }
        }
    }

    void Talk(CAdapterLensBase& lens) {
        CStreamParam param("talk");
        Ask(param, STREAM_AUDIO_TALKBACK, false);
        param.m_nBusinessType = SERVICE_TYPE_AUDIO_CALL;
        param.m_nAudioFormat = GVX_AUDIO_FORMAT_G711A;
        param.m_nAudioPayLoadType = 8;
        StreamWatch& watch = Watch(param);
        if (m_journal.Call(m_lane, "StartVoiceStream",
                           [&] { return lens.StartVoiceStream(watch.UserInfo(), &StreamWatch::Send, &param); }) != 0) {
            return;
        }
        for (int i = 0; i < kTalkBlocks; ++i) {
            m_journal.Call(m_lane, "EnqueueAudioData", [&] {
                auto* block = new ACE_Message_Block(kTalkBlockBytes);
                std::memset(block->wr_ptr(), 0xD5, kTalkBlockBytes);  // silence in A-law
                block->wr_ptr(kTalkBlockBytes);
                lens.EnqueueAudioData(block);
                return 0;
            });
        }
        m_journal.Call(m_lane, "StopVoiceStream", [&] { return lens.StopVoiceStream(&param); });
        watch.Close("StopVoiceStream has returned");
        std::this_thread::sleep_for(kSilence);
        Tell(watch, "a talk");
    }

    template <typename Object>
    void CallPlain(const std::vector<PlainOperation<Object>>& operations, Object& object) {
        for (const PlainOperation<Object>& operation : operations) {
            if (m_options.changes || !operation.changes) {
                m_journal.Call(m_lane, operation.name, [&] { return operation.call(object); });
            }
        }
    }

    void Delete() {
        for (auto lens = m_lenses.rbegin(); lens != m_lenses.rend(); ++lens) {
            m_journal.Call(m_lane, "Uninit of a lens", [&] { return (*lens)->Uninit(); });
            m_journal.Call(m_lane, "~CAdapterLensBase", [&] {
                delete *lens;
                return 0;
            });
        }
        if (m_device != nullptr) {
            m_journal.Call(m_lane, "ClearAdapterInfo", [this] { return m_device->ClearAdapterInfo(); });
            m_journal.Call(m_lane, "~CAdapterDevBase", [this] {
                delete m_device;
                return 0;
            });
        }
        for (StreamWatch* watch : m_watches) {
            watch->Close("its device is deleted");
        }
        {
            const std::lock_guard<std::mutex> lock(g_reports.mutex);
            g_reports.living.erase(m_code);
        }
        std::this_thread::sleep_for(kSilence);
        for (StreamWatch* watch : m_watches) {
            Tell(*watch, "a stream");
        }
    }

    bool Cannot(const char* operation, const char* what) {
        m_journal.Broken(m_lane, operation, what);
        return false;
    }

    const DriveOptions& m_options;
    Journal& m_journal;
    CAdapterSdkBase& m_sdk;
    const std::string m_code;
    const std::string m_lane;
    CGvxReactor m_reactor;                    // for timers and handlers of the plug-in
    CAdapterDevBase* m_device = nullptr;      // owned from CreateDevice to Delete
    std::vector<CAdapterLensBase*> m_lenses;  // owned likewise
    std::vector<StreamWatch*> m_watches;      // of all its streams; they live for ever
};

void SetCallbacks(CAdapterSdkBase& sdk, Journal& journal) {
    const auto set = [&](const char* name, auto function) {
        journal.Call(kSdk, name, [&] {
            function();
            return 0;
        });
    };
    set("SetCommonMessageCallback", [&] { sdk.SetCommonMessageCallback(&OnCommonMessage); });
    set("SetAlarmMessageCallback", [&] { sdk.SetAlarmMessageCallback(&OnAlarm); });
    set("SetDiscoveryDeviceCallback", [&] { sdk.SetDiscoveryDeviceCallback(&OnDiscovered); });
}

// A search of the device's address goes on beside the devices, as in a gateway.
bool StartSearch(CAdapterSdkBase& sdk, const DriveOptions& options, Journal& journal) {
    {
        const std::lock_guard<std::mutex> lock(g_reports.mutex);
        g_reports.searching = true;
    }
    CDiscoveryDeviceInfo request;
    DISCOVERY_IP_INFO range{};
    if (!gvx::PutText(range.strStartIp, options.ip) || !gvx::PutText(range.strEndIp, options.ip)) {
        return false;
    }
    range.iPort = options.port;
    request.DiscDevIpRangeList.push_back(range);
    const auto start = [&] { return sdk.StartSearchDevice(&request); };
    if (journal.Call(kSdk, "StartSearchDevice", start) != 0) {
        return false;
    }
    journal.MustRefuse(kSdk, "StartSearchDevice during a search", start);
    return true;
}

void EndSearch(CAdapterSdkBase& sdk, Journal& journal) {
    const auto end = std::chrono::steady_clock::now() + kSearchLimit;
    const auto percent = [] {
        const std::lock_guard<std::mutex> lock(g_reports.mutex);
        return g_reports.lastPercent;
    };
    while (percent() < 100 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (percent() < 100) {
        journal.Broken(kSdk, "a search", "has not come to its end at " + std::to_string(percent()) + " %");
    }
    journal.Call(kSdk, "StopSearchDevice", [&] {
        sdk.StopSearchDevice();
        return 0;
    });
    // The last report comes ahead of the search's end, and nobody may be at work in an object that is destroyed.
    if (!sdk.WaitSearchEnd(10000)) {
        journal.Broken(kSdk, "a search", "its threads do not end");
    }
    const std::lock_guard<std::mutex> lock(g_reports.mutex);
    g_reports.searching = false;
    journal.Figure(kSdk, "a search", std::to_string(g_reports.found) + " devices found" + g_reports.foundText);
}

// Devices push whatever they like.
void PushToIntake(const PluginLibrary& library, CAdapterSdkBase& sdk, Journal& journal) {
    if (library.takeIntake == nullptr) {
        return;
    }
    for (const std::string& bytes : {std::string("\0\xff\x01 no text", 11), std::string(1024, '{'), std::string("\n"),
                                     std::string("{\"device\":\"NOBODY\",\"code\":\"shield\"}\n")}) {
        const GvxIntakeBlock block{"127.0.0.1", 40000, "20260102030405", bytes.data(),
                                   static_cast<std::uint32_t>(bytes.size())};
        journal.Call(kSdk, "GvxTakeIntakeBlock", [&] { return library.takeIntake(&sdk, &block); });
    }
}

}  // namespace

void Drive(const DriveOptions& options, Journal& journal) {
    OMAdapter::getInstance()->setLogger(std::make_shared<ListeningLogger>(options.verbose));
    g_reports.journal = &journal;
    g_mediaPool.Init();  // metadata goes through it
    std::string fault;
    std::optional<PluginLibrary> library;
    journal.Call(kSdk, "loading", [&] {
        library = PluginLibrary::Open(options.file, fault);
        return 0;
    });
    const std::string base = options.file.substr(options.file.find_last_of('/') + 1);
    if (!library.has_value()) {
        journal.Broken(kSdk, "loading", fault);
        return;
    }
    journal.Write(kPlugin, kSdk, {},
                  base + ": " + library->name + " " + library->version + " of " + library->maker +
                      ", plug-in interface " + PluginLibrary::InterfaceText(gvx::kPluginLayout));
    if (!PluginLibrary::IsName(library->name) || base != "gvx_plugin_" + library->name + ".so") {
        journal.Broken(kSdk, "loading", "a gateway looks for gvx_plugin_" + library->name + ".so, the file is " + base);
    }
    CAdapterSdkBase* sdk = nullptr;
    journal.Call(kSdk, "GvxCreateAdapter", [&] {
        sdk = library->create();
        return sdk == nullptr ? ZVS_ALLOC_MEMORY_ERROR : ZVS_SUCCEED;
    });
    if (sdk == nullptr) {
        journal.Broken(kSdk, "GvxCreateAdapter", "made no object");
        return;
    }
    bool refused = false;
    journal.Call(kSdk, "Init of the plug-in", [&] {
        refused = !sdk->Init(options.config.c_str());
        return refused ? ZVS_FAIL : ZVS_SUCCEED;
    });
    if (refused) {
        const char* reason = library->lastError == nullptr ? nullptr : library->lastError();
        journal.Broken(kSdk, "Init of the plug-in",
                       "refuses to start: " + std::string(reason == nullptr ? "it gives no reason" : reason));
    } else {
        SetCallbacks(*sdk, journal);
        const bool searches = options.search && StartSearch(*sdk, options, journal);
        std::thread([&] { DeviceDrive(options, journal, *sdk, 1).RunWhole(); }).join();
        std::thread second([&] { DeviceDrive(options, journal, *sdk, 2).RunStreams(); });
        std::thread third([&] { DeviceDrive(options, journal, *sdk, 3).RunStreams(); });
        second.join();
        third.join();
        PushToIntake(*library, *sdk, journal);
        for (const PlainOperation<CAdapterSdkBase>& operation : SdkOperations()) {
            if (options.changes || !operation.changes) {
                journal.Call(kSdk, operation.name, [&] { return operation.call(*sdk); });
            }
        }
        if (searches) {
            EndSearch(*sdk, journal);
        }
    }
    journal.Call(kSdk, "GvxDestroyAdapter", [&] {
        library->destroy(sdk);
        return 0;
    });
    {
        const std::lock_guard<std::mutex> lock(g_reports.mutex);
        g_reports.adapterGone = true;
        journal.Figure(kSdk, "alarms", std::to_string(g_reports.alarms) + " reported");
    }
    std::this_thread::sleep_for(kSilence);
    journal.Write(kAllDone, kSdk, {}, {});
}

}  // namespace plugin_check
