#include "rtsp/rtsp_sdk.h"

#include "base/bounded_string.h"
#include "base/fixed_text.h"
#include "base/log.h"
#include "base/paths.h"
#include "gvx_common/adapter/gvx_reason.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/security/gvx_security_mgr.h"
#include "gvx_common/utility/gvx_utility.h"
#include "plugin_support/guarded.h"

#include <algorithm>
#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

namespace gvxrtsp {
namespace {

constexpr const char* kTitle = "rtsp plug-in";
constexpr const char* kAlarmTable = "rtsp_alarms.xml";
constexpr const char* kDefaultDataDir = "/var/lib/gvx";  // as for GVX_DATA_DIR
constexpr const char* kFoundPaths = "/rtsp_found_paths.json";
constexpr std::chrono::milliseconds kSavePeriod(10000);
constexpr unsigned int kMaxLoops = 4;
constexpr std::uint16_t kRtspPort = 554;
constexpr std::size_t kMaxPassword = 64;

// Written by Init, which runs once and before anybody asks.
std::string& LastErrorText() {
    static std::string text;
    return text;
}

// The stored form of a password: that which "gvxctl secret encipher" gives is kept, any other text is enciphered.
bool Encipher(const std::string& password, std::string& enciphered) {
    CSecurityMgr& security = *CSecurityMgr::Instance();
    char clear[kMaxPassword + 1] = {};
    if (password.empty() || security.DecryptString(password.c_str(), clear, sizeof(clear)) == 0) {
        memset_s(clear, sizeof(clear), 0, sizeof(clear));
        enciphered = password;
        return true;
    }
    char stored[CSecurityMgr::EncipheredSize(kMaxPassword)] = {};
    if (password.size() > kMaxPassword || security.EncryptString(password.c_str(), stored, sizeof(stored)) != 0) {
        return false;
    }
    enciphered = stored;
    return true;
}

}  // namespace

RtspSdk::~RtspSdk() {
    m_saver.Stop();
    for (const std::unique_ptr<MediaLoop>& loop : m_loops) {
        loop->Stop();
    }
    SaveFoundPaths();
}

void RtspSdk::SaveFoundPaths() {
    gvxplugin::Guarded(kTitle, "SaveFoundPaths", [this] {
        m_profiles.SaveFound();
        return ZVS_SUCCEED;
    });
}

const char* RtspSdk::LastError() {
    return LastErrorText().c_str();
}

bool RtspSdk::Init(const char* configFile) {
    const int result = gvxplugin::Guarded(kTitle, "Init", [&]() -> int {
        LastErrorText() = "The settings cannot be read.";
        if (!Load(configFile == nullptr ? "" : configFile, LastErrorText())) {
            GVX_LOG_ERR_CODE(kTitle, ZVS_OPEN_FILE_ERROR, "%s", LastError());
            return ZVS_OPEN_FILE_ERROR;
        }
        LastErrorText().clear();
        return ZVS_SUCCEED;
    });
    return result == ZVS_SUCCEED;
}

bool RtspSdk::Load(const std::string& configFile, std::string& error) {
    const std::string folder = configFile.substr(0, configFile.find_last_of('/') + 1);
    if (!m_profiles.Load(configFile, error) || !m_alarms.Load(folder + kAlarmTable, {kConnectionCode}, error)) {
        return false;
    }
    const unsigned int processors = std::clamp(std::thread::hardware_concurrency(), 1u, kMaxLoops);
    const unsigned int count = m_profiles.Loops() > 0 ? static_cast<unsigned int>(m_profiles.Loops()) : processors;
    while (m_loops.size() < count) {
        auto loop = std::make_unique<MediaLoop>();
        if (!loop->Start(error)) {
            return false;
        }
        m_loops.push_back(std::move(loop));
    }
    const std::string data = CGvxConfigMgr::Instance()->GetConfValue("GVX_DATA_DIR", "");
    m_profiles.KeepFoundIn((data.empty() ? gvx::RootedPath(kDefaultDataDir) : data) + kFoundPaths);
    try {
        m_saver.Start("GvxRtspPaths", kSavePeriod, [this] { SaveFoundPaths(); });
    } catch (const std::system_error& fault) {
        GVX_LOG_WARN(kTitle, "The paths that cameras answer on are kept at the end alone: %s.", fault.what());
    }
    return true;
}

// The first loop that has room: many cameras on one cost less than few on each. Behind that, the quietest.
MediaLoop& RtspSdk::LoopForOneMore() {
    constexpr std::size_t kRoom = 64;
    for (const std::unique_ptr<MediaLoop>& loop : m_loops) {
        if (loop->Load() < kRoom) {
            return *loop;
        }
    }
    return **std::min_element(m_loops.begin(), m_loops.end(),
                              [](const auto& left, const auto& right) { return left->Load() < right->Load(); });
}

int RtspSdk::CreateDevice(const MainDeviceInfo& info, CAdapterDevBase*& device) {
    device = nullptr;
    return gvxplugin::Guarded(kTitle, "CreateDevice", [&]() -> int {
        CameraProfile profile;
        std::uint32_t address = 0;
        std::string error;
        profile.device = info.strDevCode;
        profile.address = info.strIP;
        profile.port = info.nPort == 0 ? kRtspPort : info.nPort;
        profile.user = info.strUserName;
        if (CGvxUtility::convertIpv4ToNum(info.strIP, address) != 0) {
            return GvxFail(ZVS_PARA_INVALID, "The camera's address is no IPv4 address.");
        }
        if (!Encipher(info.strPassword, profile.password)) {
            return GvxFail(ZVS_PARA_INVALID,
                           "The password is longer than %zu characters, or there is no key to encipher it.",
                           kMaxPassword);
        }
        if (!m_profiles.Apply(info.strExtend, profile, error)) {
            return GvxFail(ZVS_PARA_INVALID, "%s", error.c_str());
        }
        device = new RtspDevice(LoopForOneMore(), profile, m_profiles, m_alarms, m_callback, m_desk);
        return ZVS_SUCCEED;
    });
}

void RtspSdk::SendRemoteProbeMessage(std::list<std::string>& addresses) {
    gvxplugin::Guarded(kTitle, "SendRemoteProbeMessage", [&] {
        Probe(addresses);
        return ZVS_SUCCEED;
    });
    UpdateDiscoveryPrecent(100);
}

void RtspSdk::SendLocalProbeMessage(std::list<std::string>& addresses) {
    gvxplugin::Guarded(kTitle, "SendLocalProbeMessage", [&] {
        const std::string local = CGvxConfigMgr::Instance()->GetConfValue("GVX_MESSAGE_IP", "127.0.0.1");
        ProbeOnvif(
            local, [this](const ProbedCamera& camera) { Report(camera); }, [this] { return IsSearchOver(); });
        Probe(addresses);
        return ZVS_SUCCEED;
    });
    UpdateDiscoveryPrecent(100);
}

// Every port that a range names is tried at every address: the addresses come without their ranges.
void RtspSdk::Probe(const std::list<std::string>& addresses) {
    std::list<std::uint16_t> ports;
    for (const DISCOVERY_IP_INFO& range : m_pDiscDevInfo->DiscDevIpRangeList) {
        if (range.iPort > 0 && range.iPort <= UINT16_MAX) {
            ports.push_back(static_cast<std::uint16_t>(range.iPort));
        }
    }
    ports.sort();
    ports.unique();
    if (ports.empty()) {
        ports.push_back(kRtspPort);
    }
    ProbeRtsp(
        addresses, ports, [this](const ProbedCamera& camera) { Report(camera); }, [this] { return IsSearchOver(); },
        [this, last = 0u](unsigned int percent) mutable {
            if (percent != std::exchange(last, percent)) {
                UpdateDiscoveryPrecent(percent);
            }
        });
}

void RtspSdk::Report(const ProbedCamera& camera) {
    DeviceDiscoveryInfo info{};
    info.uiPort = camera.port == 0 ? kRtspPort : camera.port;
    info.enProtocol = enDevProtocolType{};
    std::string name = camera.name.substr(0, sizeof(info.szFac) - 1);
    if (gvx::PutText(info.szIp, camera.address) && gvx::PutText(info.szFac, name) &&
        gvx::PutText(info.szType, "rtsp")) {
        UpdateDiscoveryDeviceList(info);
    }
}

}  // namespace gvxrtsp
