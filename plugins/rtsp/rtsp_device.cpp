#include "rtsp/rtsp_device.h"

#include "base/json_io.h"
#include "base/log.h"
#include "gvx_common/adapter/gvx_reason.h"
#include "gvx_common/utility/gvx_utility.h"
#include "plugin_support/guarded.h"
#include "rtsp/camera_picture.h"
#include "rtsp/rtsp_lens.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace gvxrtsp {
namespace {

constexpr const char* kTitle = "rtsp plug-in";
constexpr std::size_t kMaxIdentifier = 32;
// How long an addition waits for the camera's description; one that is away is added all the same.
constexpr std::chrono::milliseconds kFirstLookLimit(2000);

}  // namespace

RtspDevice::RtspDevice(MediaLoop& loop, const CameraProfile& profile, CameraProfiles& profiles,
                       const gvxplugin::AlarmTable& alarms, const AlarmCallback& callback, gvxplugin::PictureDesk& desk)
    : m_alarms(alarms),
      m_callback(callback),
      m_profiles(profiles),
      m_desk(desk),
      m_camera(std::make_shared<Camera>(
          loop, profile, profiles, [this](CameraState state, const std::string& reason) { OnState(state, reason); })) {}

RtspDevice::~RtspDevice() {
    RtspDevice::ClearAdapterInfo();
}

int RtspDevice::ClearAdapterInfo() {
    return gvxplugin::Guarded(kTitle, "ClearAdapterInfo", [&]() -> int {
        std::fill(std::begin(m_streams), std::end(m_streams), nullptr);
        m_camera->Loop().Call([this] { m_camera->Close(); });
        return ZVS_SUCCEED;
    });
}

int RtspDevice::Init() {
    return gvxplugin::Guarded(kTitle, "Init", [&]() -> int {
        m_camera->Loop().Call([this] {
            m_code = GetMainDevID();
            m_form = GetDevFromType();
            m_camera->Open();
            for (const StreamKind kind : {MAIN_STREAM, SUB_STREAM}) {
                m_streams[kind] = m_camera->Stream(kind);
            }
        });
        return ZVS_SUCCEED;
    });
}

CameraStreamStatus RtspDevice::Status(StreamKind kind) const {
    return m_streams[kind] == nullptr ? CameraStreamStatus{} : m_streams[kind]->Status();
}

CameraStreamStatus RtspDevice::MainStatus(std::chrono::milliseconds limit) const {
    return m_streams[MAIN_STREAM] == nullptr ? CameraStreamStatus{} : m_streams[MAIN_STREAM]->WaitForLook(limit);
}

int RtspDevice::ResetLogin() {
    return gvxplugin::Guarded(kTitle, "ResetLogin", [&]() -> int {
        m_camera->Loop().Call([this] { m_camera->Restart(); });
        return ZVS_SUCCEED;
    });
}

int RtspDevice::SendHeartbeat() {
    return GetLoginStatus() ? ZVS_SUCCEED : ZVS_FAIL;
}

GVX_CHANNEL_ABILITY_INFO RtspDevice::DescribeChannel() const {
    GVX_CHANNEL_ABILITY_INFO info;
    info.strName = GetMainDevID();
    info.nStreamCount = kStreamKinds;
    const CameraStreamStatus status = MainStatus(kFirstLookLimit);
    if (status.described) {
        const TrackDescription& video = *status.description.Video();
        const TrackDescription* audio = status.description.Audio();
        info.nVideoFormat = video.VideoFormat();
        info.nAudioFormat = audio == nullptr ? 0 : audio->AudioFormat();
        const gvx::Codec codec = video.VideoCodec();
        for (const std::string& set : video.parameterSets) {
            const auto* data = reinterpret_cast<const std::uint8_t*>(set.data());
            gvx::SequenceInfo sequence;
            if (gvx::ClassifyNal(codec, data, set.size()).sequenceSet &&
                gvx::ParseSequenceParameterSet(codec, data, set.size(), sequence)) {
                info.nWidth = static_cast<std::uint16_t>(sequence.width);
                info.nHeight = static_cast<std::uint16_t>(sequence.height);
                info.dFrameRate = sequence.frameRate.Value();
            }
        }
    }
    return info;
}

int RtspDevice::GetDeviceAbility(GVX_DEVICE_ABILITY_INFO& ability) {
    return gvxplugin::Guarded(kTitle, "GetDeviceAbility", [&]() -> int {
        ability = GVX_DEVICE_ABILITY_INFO{};
        ability.eDevFormType = GetDevFromType();
        ability.strModel = GetModelType().empty() ? "rtsp" : GetModelType();
        ability.channels.push_back(DescribeChannel());
        return ZVS_SUCCEED;
    });
}

int RtspDevice::GetSubDeviceAbility(LENS_ABILITY_INFO& ability) {
    if (ability.strLensCode != m_lensId) {
        return ZVS_GVX_LENS_NOT_EXIST;
    }
    return gvxplugin::Guarded(kTitle, "GetSubDeviceAbility", [&]() -> int {
        ability.channel = DescribeChannel();
        return ZVS_SUCCEED;
    });
}

int RtspDevice::CreateLens(const char* lensId, const short& channel, CAdapterDevBase*& /*parent*/,
                           CAdapterLensBase*& lens) {
    lens = nullptr;
    GVX_CHECK_NULL_RETURN(lensId, ZVS_NULL_POINTER);
    return gvxplugin::Guarded(kTitle, "CreateLens", [&]() -> int {
        if (channel != 0 || std::string(lensId).size() > kMaxIdentifier) {
            return GvxFail(ZVS_GVX_LENS_NOT_EXIST, "A camera has channel 0 alone.");
        }
        lens = new RtspLens(lensId, channel, *this);
        m_lensId = lensId;
        return ZVS_SUCCEED;
    });
}

const std::string RtspDevice::GetLensIDThroughChannoId(unsigned int channel) {
    return channel == 0 ? m_lensId : std::string();
}

int RtspDevice::VcuGetUploadImgRsp(PU_UPLOAD_IMAGE_RSP& address) {
    return gvxplugin::Guarded(kTitle, "VcuGetUploadImgRsp", [&] { return m_desk.Send(GetMainDevID(), address); });
}

int RtspDevice::FetchPicture(std::int64_t endMs, std::string& bytes, std::string& error) const {
    const std::string path = m_profiles.SnapshotPath(m_camera->Profile());
    if (path.empty()) {
        error = "No path of a picture is known for the camera; \"snapshot\" of its extend text names one.";
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    bool may = false;
    m_camera->Loop().Call([&] { may = m_camera->MayAskWebServer(); });
    if (!may) {
        error = "The camera's web server has refused the password three times, and is left alone for ten minutes.";
        return ZVS_GVX_UNAUTHORIZED;
    }
    const int result = FetchCameraPicture(m_camera->Profile(), path, endMs, bytes, error);
    if (result == ZVS_GVX_UNAUTHORIZED) {
        m_camera->Loop().Call([this] { m_camera->OnWebServerRefusal(); });
    } else if (result == ZVS_SUCCEED) {
        m_camera->Loop().Call([this] { m_camera->OnWebServerSuccess(); });
    }
    return result;
}

void RtspDevice::OnState(CameraState state, const std::string& reason) {
    const bool online = state == CameraState::Online;
    SetLoginStatus(online);
    if (online) {
        GVX_LOG_INFO(kTitle, "Camera[%s] at %s is online.", m_code.c_str(), m_camera->Profile().Url("").c_str());
    } else {
        GVX_LOG_WARN(kTitle, "Camera[%s] at %s is not online, %s. %s", m_code.c_str(),
                     m_camera->Profile().Url("").c_str(), CameraStateName(state), reason.c_str());
    }
    if (online == m_isLost) {
        m_isLost = !online;
        ReportConnection(m_isLost, reason);
    }
}

void RtspDevice::ReportConnection(bool lost, const std::string& reason) {
    ADAPTER_ALARM_CALLBACK* const callback = m_callback.load();
    gvxplugin::AlarmEvent event;
    event.code = kConnectionCode;
    event.hasAction = true;
    event.action = lost ? "start" : "stop";
    event.description = reason;
    ZVS_ALARM_REPORT alarm{};
    std::string error;
    if (callback == nullptr || !m_alarms.Translate(event, m_form, alarm, error)) {
        GVX_LOG_WARN(kTitle, "Camera[%s]: its alarm cannot be reported. %s", m_code.c_str(), error.c_str());
        return;
    }
    std::string now;
    CGvxUtility::GetCurrentUtcTime(now, "YYYYMMDDhhmmss");
    Json::Value report(Json::objectValue);
    report["AlarmInCode"] = m_code;
    report["AlarmType"] = alarm.cAlarmType;
    report["Action"] = static_cast<int>(alarm.bAction);
    report["OccurTime"] = now;
    report["AlarmDesc"] = alarm.cAlarmDesc;
    report["ExtParam"] = alarm.cExtParam;
    callback(m_code.c_str(), gvx::WriteJson(report).c_str());
}

}  // namespace gvxrtsp
