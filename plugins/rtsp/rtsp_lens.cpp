#include "rtsp/rtsp_lens.h"

#include "base/clock.h"
#include "base/log.h"
#include "gvx_common/adapter/gvx_reason.h"
#include "gvx_common/records/picture_records.h"
#include "gvx_common/records/rtp_payload.h"
#include "gvx_common/records/stream_param.h"
#include "plugin_support/guarded.h"
#include "rtsp/rtsp_device.h"

#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>

#include <algorithm>
#include <cstdint>
#include <thread>
#include <utility>

namespace gvxrtsp {
namespace {

constexpr const char* kTitle = "rtsp plug-in";
// How long a request waits for a camera that was not described yet. The thread serves other devices too.
constexpr std::chrono::milliseconds kDescriptionLimit(4000);
// A picture ends within the usual GVX_PLUGIN_CALL_LIMIT, the wait for its turn and both exchanges together.
constexpr std::int64_t kPictureMs = 8000;
constexpr std::int64_t kTurnMs = kPictureMs / 2;

bool ReadKind(const CStreamParam& param, StreamKind& kind) {
    kind = param.m_nStreamID == STREAM_TYPE_REAL_SUB1 ? SUB_STREAM : MAIN_STREAM;
    const bool live = param.m_nStreamID == STREAM_TYPE_REAL_MAIN || param.m_nStreamID == STREAM_TYPE_REAL_SUB1;
    return live && (param.m_nDstTransProtocol == RTP_OVER_UDP || param.m_nDstTransProtocol == RTP_OVER_TCP);
}

// The result that stands for a state in which there is no stream to be had.
int ResultOf(CameraState state) {
    switch (state) {
        case CameraState::WrongPassword:
            return ZVS_GVX_UNAUTHORIZED;
        case CameraState::NoSuchStream:
            return ZVS_GVX_STREAM_NOT_EXIST;
        case CameraState::BadDescription:
            return ZVS_GVX_DEV_UN_SUPPORT;
        default:
            return ZVS_GVX_OPEN_SOCKET_ERROR;
    }
}

}  // namespace

RtspLens::RtspLens(const char* lensId, short channel, RtspDevice& device)
    : CAdapterLensDefaults(lensId, channel, device), m_device(device), m_camera(device.GetCamera()) {
    m_senders[MAIN_STREAM] = std::make_unique<FrameSender>(*this, MAIN_STREAM);
    m_senders[SUB_STREAM] = std::make_unique<FrameSender>(*this, SUB_STREAM);
}

RtspLens::~RtspLens() {
    StopSnapQueueThread();
    PartAll();
}

void RtspLens::PartAll() {
    m_camera->Loop().Call([this] {
        for (const StreamKind kind : {MAIN_STREAM, SUB_STREAM}) {
            if (CameraStream* stream = m_camera->Stream(kind); stream != nullptr) {
                stream->Part(m_senders[kind].get());
            }
        }
    });
}

int RtspLens::Uninit() {
    PartAll();
    return ZVS_SUCCEED;
}

int RtspLens::NegotiateStreamParam(CStreamParam* param) {
    GVX_CHECK_NULL_RETURN(param, ZVS_NULL_POINTER);
    return gvxplugin::Guarded(kTitle, "NegotiateStreamParam", [&]() -> int {
        StreamKind kind = MAIN_STREAM;
        if (!ReadKind(*param, kind)) {
            return GvxFail(ZVS_GVX_DEV_UN_SUPPORT, "A camera has a main and a first sub stream, live alone.");
        }
        // What the main stream is like stands for the sub stream until that has been asked for.
        CameraStreamStatus status = m_device.Status(kind);
        if (!status.described) {
            status = m_device.MainStatus(kDescriptionLimit);
        }
        const TrackDescription* video = status.described ? status.description.Video() : nullptr;
        if (video == nullptr) {
            const std::string reason = status.reason.empty() ? "The camera has not answered yet." : status.reason;
            return GvxFail(ResultOf(status.state), "%s. %s", CameraStateName(status.state), reason.c_str());
        }
        param->m_nVideoFormat = video->VideoFormat();
        param->m_nVideoPayLoadType = video->codec == RTP_CODEC_H265 ? gvx::kPayloadH265 : gvx::kPayloadH264;
        const TrackDescription* audio = status.description.Audio();
        param->m_nAudioFormat = audio == nullptr ? 0 : audio->AudioFormat();
        param->m_nAudioPayLoadType =
            param->m_nAudioFormat == GVX_AUDIO_FORMAT_G711A ? gvx::kPayloadG711A : gvx::kPayloadG711U;
        param->m_nVedioAnalysePort = 0;
        return ZVS_SUCCEED;
    });
}

int RtspLens::StartStream(void* userInfo, SEND_STREAM_FUNC* func, CStreamParam* param, bool needExternData) {
    GVX_CHECK_NULL_RETURN(func, ZVS_NULL_POINTER);
    GVX_CHECK_NULL_RETURN(param, ZVS_NULL_POINTER);
    return gvxplugin::Guarded(kTitle, "StartStream", [&]() -> int {
        StreamKind kind = MAIN_STREAM;
        if (!ReadKind(*param, kind)) {
            return ZVS_GVX_DEV_UN_SUPPORT;
        }
        StreamUser user;
        user.serviceID = param->m_strServiceID;
        user.userInfo = userInfo;
        user.send = func;
        user.overTcp = param->m_nDstTransProtocol == RTP_OVER_TCP;
        user.needExternData = needExternData;
        int result = ZVS_FAIL;
        m_camera->Loop().Call([&] {
            CameraStream* stream = m_camera->Stream(kind);
            result = stream == nullptr ? ZVS_NULL_POINTER : m_senders[kind]->Add(std::move(user));
            if (result == ZVS_SUCCEED) {
                stream->Join(m_senders[kind].get());
            }
        });
        return result;
    });
}

int RtspLens::StopStream(CStreamParam* param, bool /*force*/) {
    GVX_CHECK_NULL_RETURN(param, ZVS_NULL_POINTER);
    return gvxplugin::Guarded(kTitle, "StopStream", [&]() -> int {
        StreamKind kind = MAIN_STREAM;
        bool found = false;
        if (ReadKind(*param, kind)) {
            m_camera->Loop().Call([&] {
                found = m_senders[kind]->Remove(param->m_strServiceID);
                CameraStream* stream = m_camera->Stream(kind);
                if (found && stream != nullptr && m_senders[kind]->IsEmpty()) {
                    stream->Part(m_senders[kind].get());
                }
            });
        }
        return found ? ZVS_SUCCEED : ZVS_GVX_STREAM_NOT_EXIST;
    });
}

int RtspLens::RequestKeyframe(CStreamParam* param) {
    GVX_CHECK_NULL_RETURN(param, ZVS_NULL_POINTER);
    return gvxplugin::Guarded(kTitle, "RequestKeyframe", [&]() -> int {
        StreamKind kind = MAIN_STREAM;
        if (!ReadKind(*param, kind)) {
            return ZVS_GVX_STREAM_NOT_EXIST;
        }
        m_camera->Loop().Post([camera = m_camera, kind] {
            if (CameraStream* stream = camera->Stream(kind); stream != nullptr) {
                stream->RequestKeyframe();
            }
        });
        return ZVS_SUCCEED;
    });
}

int RtspLens::EncodeRspSDP(const CStreamParam* param, std::string& sdp) {
    GVX_CHECK_NULL_RETURN(param, ZVS_NULL_POINTER);
    CStreamParam described(*param);
    if (described.m_nAudioFormat == GVX_AUDIO_FORMAT_AAC) {
        described.m_nAudioFormat = GVX_AUDIO_FORMAT_G711A;
        described.m_nSrcRtpAudioPort = 0;
    }
    return CAdapterLensDefaults::EncodeRspSDP(&described, sdp);
}

int RtspLens::VcuSnapShotReqInfo(const PU_SNAP_CONF_REQ& request) {
    return gvxplugin::Guarded(kTitle, "VcuSnapShotReqInfo", [&]() -> int {
        gvxplugin::PictureDesk::Owed owed(m_device.Desk(), m_device.GetMainDevID(), GetSubDevID(), request);
        const std::uint32_t intervalMs = request.nSnapInterval;  // by value: the record is packed
        for (std::uint32_t number = 0; number < request.nSnapNum; ++number) {
            if (number > 0 && !PauseBetweenPictures(std::chrono::milliseconds(intervalMs))) {
                owed.SetReason("The lens goes.");
                return GvxFail(ZVS_FAIL, "The lens goes.");
            }
            std::string error;
            const int result = TakePicture(request, error);
            if (result != ZVS_SUCCEED) {
                GVX_LOG_WARN_CODE(kTitle, result, "There is no picture. %s [lens:%s]", error.c_str(), GetSubDevID());
                owed.SetReason(error);
                return GvxFail(result, "%s", error.c_str());
            }
            owed.NoteTaken();
        }
        return ZVS_SUCCEED;
    });
}

bool RtspLens::PauseBetweenPictures(std::chrono::milliseconds time) const {
    constexpr std::int64_t kLookMs = 50;
    const std::int64_t endMs = gvx::MonotonicMilliseconds() + time.count();
    for (;;) {
        if (m_snapQueueMutex != nullptr) {
            const ACE_Guard<ACE_Recursive_Thread_Mutex> guard(*m_snapQueueMutex);
            if (m_snapQueueExit) {
                return false;
            }
        }
        const std::int64_t leftMs = endMs - gvx::MonotonicMilliseconds();
        if (leftMs <= 0) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(std::min(leftMs, kLookMs)));
    }
}

int RtspLens::TakePicture(const PU_SNAP_CONF_REQ& request, std::string& error) {
    const std::int64_t beginMs = gvx::MonotonicMilliseconds();
    const gvxplugin::PictureDesk::Turn turn(m_device.Desk(), beginMs + kTurnMs);
    if (!turn.HasCome()) {
        error = "Too many pictures are being taken or sent: its turn did not come.";
        return ZVS_GVX_GET_SNAP_SHOT_ERROR;
    }
    auto bytes = std::make_shared<std::string>();
    int result = m_device.FetchPicture(beginMs + kPictureMs, *bytes, error);
    if (result == ZVS_SUCCEED) {
        result = m_device.Desk().Keep(m_device.GetMainDevID(), GetSubDevID(), request, bytes);
        error = "It cannot be kept.";
    }
    return result;
}

int RtspLens::VcuUploadImgCompReq(PU_UPLOAD_IMAGE_COMP_REQ& end) {
    m_device.Desk().NoteEnd(GetSubDevID(), end);
    return ZVS_SUCCEED;
}

}  // namespace gvxrtsp
