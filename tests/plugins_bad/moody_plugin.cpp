#include "moody_plugin.h"

#include "gvx_common/adapter/gvx_adapter_defaults.h"
#include "gvx_common/adapter/gvx_plugin.h"
#include "gvx_common/adapter/gvx_reason.h"
#include "gvx_common/alarm/gvx_error_mgr.h"
#include "gvx_common/records/stream_param.h"

#include <atomic>
#include <chrono>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>

// A camera that sends numbered packets, unless the device's extend text says otherwise: "operation=mood", parted by
// blanks. A log switch that is set hangs. Moods: throw, throw-int, error, report (an error with its words and its
// reason), hang, null; "StartStream=error-later": the thread sends already. "thread=endless": the thread goes on
// sending whatever StopStream answers; "thread=inline": StartStream sends its first packet itself.

MoodyState g_moody;

namespace {

class Alive {
public:
    Alive() { ++g_moody.alive; }
    ~Alive() { --g_moody.alive; }
    Alive(const Alive&) = delete;
    Alive& operator=(const Alive&) = delete;
};

std::string MoodOf(const std::string& moods, const char* operation) {
    const std::string key = std::string(" ") + operation + "=";
    const std::size_t at = (" " + moods).find(key);
    const std::string rest = at == std::string::npos ? "" : moods.substr(at + key.size() - 1);
    return rest.substr(0, rest.find(' '));
}

int Act(const std::string& moods, const char* operation) {
    const std::string mood = MoodOf(moods, operation);
    if (mood == "throw") {
        throw std::runtime_error("moody in " + std::string(operation));
    }
    if (mood == "throw-int") {
        throw 42;
    }
    if (mood == "hang") {
        ++g_moody.hanging;
        while (!g_moody.release) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        --g_moody.hanging;
    }
    if (mood == "report") {
        GVXErrorMgr::getInstance()->reportError(__func__, "CAM1", "3", ZVS_GVX_UNAUTHORIZED, operation, "of its mood");
        GvxSetReason("%s is in a bad mood.", operation);
    }
    return mood == "error" || mood == "report" ? ZVS_GVX_UNAUTHORIZED : 0;
}

// All that a thread needs to send: it may outlive its stream.
struct Sender {
    void* userInfo;
    SEND_STREAM_FUNC* func;
    bool overTcp;
    STREAM_TYPE_EX type;

    void Send(std::uint16_t number) const {
        std::string packet("$\0\0\x70\x80\x63", 6);  // the interleave head, then 112 bytes of RTP
        packet += static_cast<char>(number >> 8);
        packet += static_cast<char>(number);
        packet.resize(4 + 12 + 100, 'v');
        MEDIA_DATA data{};
        data.pUserInfo = userInfo;
        data.pDataBuf = overTcp ? packet.data() : packet.data() + 4;
        data.nVideoSize = static_cast<std::uint32_t>(packet.size() - (overTcp ? 0 : 4));
        data.eTransProtocol = overTcp ? RTP_OVER_TCP : RTP_OVER_UDP;
        STREAM_TYPE_EX packetType = type;
        g_moody.refused += func(&data, &packetType) == ZVS_GVX_OPEN_SOCKET_ERROR;
    }
    void SendUntil(const std::atomic<bool>& end) const {
        const Alive alive;
        for (std::uint16_t number = 1; !end; ++number) {
            Send(number);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
};

class MoodyLens : public CAdapterLensDefaults {
public:
    MoodyLens(const char* id, short channel, CAdapterDevBase& parent, std::string moods)
        : CAdapterLensDefaults(id, channel, parent), m_moods(std::move(moods)) {}
    ~MoodyLens() override { EndThread(); }

    int Init() override { return Act(m_moods, "LensInit"); }
    int Uninit() override { return Act(m_moods, "Uninit"); }

    CStreamParam* CreateStreamParam(const std::string& serviceID) override {
        Act(m_moods, "CreateStreamParam");
        return MoodOf(m_moods, "CreateStreamParam") == "null" ? nullptr
                                                              : CAdapterLensDefaults::CreateStreamParam(serviceID);
    }
    int NegotiateStreamParam(CStreamParam* param) override {
        param->m_nVideoFormat = VIDEO_DEC_H264;
        param->m_nVideoPayLoadType = 99;
        param->m_nAudioFormat = GVX_AUDIO_FORMAT_G711A;
        param->m_nAudioPayLoadType = 8;
        return Act(m_moods, "NegotiateStreamParam");
    }
    int CheckSpecialCase(CStreamParam*) override { return Act(m_moods, "CheckSpecialCase"); }
    int VcuSnapShotReqInfo(const PU_SNAP_CONF_REQ&) override { return Act(m_moods, "VcuSnapShotReqInfo"); }
    int RequestKeyframe(CStreamParam*) override { return Act(m_moods, "RequestKeyframe"); }

    int StartStream(void* userInfo, SEND_STREAM_FUNC* func, CStreamParam* param, bool) override {
        const int code = Act(m_moods, "StartStream");
        if (code != 0) {
            return code;
        }
        EndThread();
        m_end = false;
        const Sender sender{userInfo, func, param->m_nDstTransProtocol == RTP_OVER_TCP,
                            static_cast<STREAM_TYPE_EX>(param->m_nStreamID)};
        if (MoodOf(m_moods, "thread") == "inline") {
            sender.Send(0);
        }
        if (MoodOf(m_moods, "thread") == "endless") {
            std::thread([sender] { sender.SendUntil(g_moody.release); }).detach();
        } else {
            m_thread = std::thread([this, sender] { sender.SendUntil(m_end); });
        }
        return MoodOf(m_moods, "StartStream") == "error-later" ? ZVS_GVX_UNAUTHORIZED : 0;
    }
    int StopStream(CStreamParam*, bool) override {
        const int code = Act(m_moods, "StopStream");
        EndThread();
        return code;
    }

private:
    void EndThread() {
        m_end = true;
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    const std::string m_moods;
    const Alive m_alive;
    std::atomic<bool> m_end{false};
    std::thread m_thread;
};

class MoodyDevice : public CAdapterDevDefaults {
public:
    explicit MoodyDevice(std::string moods) : m_moods(std::move(moods)) {}

    int Init() override { return Act(m_moods, "Init"); }
    int ClearAdapterInfo() override { return Act(m_moods, "ClearAdapterInfo"); }
    int GetDeviceAbility(GVX_DEVICE_ABILITY_INFO& ability) override {
        GVX_CHANNEL_ABILITY_INFO channel;
        channel.nVideoFormat = VIDEO_DEC_H264;
        channel.nWidth = 640;
        ability.channels.assign(2, channel);
        ability.channels[1].nChannelId = 1;
        return Act(m_moods, "GetDeviceAbility");
    }
    int CreateLens(const char* id, const short& channel, CAdapterDevBase*& parent, CAdapterLensBase*& lens) override {
        const int code = Act(m_moods, "CreateLens");
        // The second lens is the one that fails: the first has to be undone.
        if (MoodOf(m_moods, "CreateLens") == "null" && channel == 1) {
            return 0;
        }
        lens = code == 0 ? new (std::nothrow) MoodyLens(id, channel, *parent, m_moods) : nullptr;
        return code;
    }

private:
    const std::string m_moods;
    const Alive m_alive;
};

class MoodySdk : public CAdapterSdkBase {
public:
    bool Init(const char*) override { return true; }
    int CreateDevice(const MainDeviceInfo& info, CAdapterDevBase*& device) override {
        const int code = Act(info.strExtend, "CreateDevice");
        if (code == 0 && MoodOf(info.strExtend, "CreateDevice") != "null") {
            device = new (std::nothrow) MoodyDevice(info.strExtend);
        }
        return code;
    }
    // The moods stand in ServerCode.
    int StartSearchDevice(CDiscoveryDeviceInfo* info) override {
        const int code = Act(info->strServerCode, "StartSearchDevice");
        return code == 0 ? CAdapterSdkBase::StartSearchDevice(info) : code;
    }
    ZVS_INT32 SetSDKLogSwitch(ZVS_UINT32 on) override { return Act(on != 0 ? "Switch=hang" : "", "Switch"); }
    void SetCommonMessageCallback(ADAPTER_COMMON_MESSAGE_CALLBACK* callback) override { g_moody.report = callback; }
};

}  // namespace

const GvxPluginDescription* GvxDescribePlugin() {
    static const GvxPluginDescription description{GVX_PLUGIN_ABI_VERSION, BAD_PLUGIN_NAME, "1", "tests"};
    return &description;
}

CAdapterSdkBase* GvxCreateAdapter() {
    return new (std::nothrow) MoodySdk;
}

void GvxDestroyAdapter(CAdapterSdkBase* adapter) {
    g_moody.report = nullptr;
    delete adapter;
}

// What a device pushes is the mood.
int GvxTakeIntakeBlock(CAdapterSdkBase*, const GvxIntakeBlock* block) {
    return Act("TakeIntakeBlock=" + std::string(block->pData, block->uiLength), "TakeIntakeBlock");
}
