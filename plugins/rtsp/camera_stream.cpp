#include "rtsp/camera_stream.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/random.h"
#include "gvx_common/adapter/gvx_device_state.h"

#include <algorithm>
#include <utility>

namespace gvxrtsp {
namespace {

constexpr const char* kTitle = "rtsp plug-in";
constexpr std::int64_t kSecondUs = 1000000;
constexpr std::int64_t kLookUs = 60 * kSecondUs;
constexpr std::int64_t kKeyFrameUs = 2 * kSecondUs;

std::int64_t NowUs() {
    return gvx::CurrentClock().MonotonicMicroseconds();
}

double RandomShare() {
    std::uint16_t number = 0;
    CBB::GenerateRandom(&number, sizeof(number));
    return static_cast<double>(number) / UINT16_MAX;
}

GVX_DEVICE_STATE ReportedState(CameraState state) {
    switch (state) {
        case CameraState::Unknown:
            return GVX_DEVICE_UNKNOWN;
        case CameraState::Online:
            return GVX_DEVICE_ONLINE;
        case CameraState::Offline:
            return GVX_DEVICE_OFFLINE;
        case CameraState::Refused:
            return GVX_DEVICE_REFUSED;
        case CameraState::WrongPassword:
            return GVX_DEVICE_WRONG_PASSWORD;
        case CameraState::NoSuchStream:
        case CameraState::BadDescription:
        case CameraState::NoFrames:
            break;
    }
    return GVX_DEVICE_NO_PICTURE;
}

}  // namespace

CameraStream::CameraStream(MediaLoop& loop, const CameraProfile& profile, CameraProfiles& profiles, LoginPolicy& policy,
                           StreamKind kind, bool looks, ICameraStateSink& sink)
    : LoopTimer(loop),
      m_profile(profile),
      m_profiles(profiles),
      m_policy(policy),
      m_kind(kind),
      m_looks(looks),
      m_sink(sink),
      m_overTcp(profile.transport != CameraTransport::Udp) {
    SetDue(0);
}

void CameraStream::Join(FrameSender* sender) {
    if (std::find(m_senders.begin(), m_senders.end(), sender) == m_senders.end()) {
        m_senders.push_back(sender);
        const CameraStreamStatus status = Status();
        if (m_session != nullptr && m_goal == CameraSession::Goal::Play && status.described) {
            sender->Begin(status.description);
        }
    }
    m_keyFrameWanted = true;
    SetDue(0);
}

void CameraStream::Part(FrameSender* sender) {
    m_senders.erase(std::remove(m_senders.begin(), m_senders.end(), sender), m_senders.end());
    m_lingerUs = NowUs() + m_profiles.LingerSeconds() * kSecondUs;
    SetDue(0);
}

void CameraStream::RequestKeyframe() {
    const std::int64_t nowUs = NowUs();
    if (m_session == nullptr || m_goal != CameraSession::Goal::Play || !m_delivers ||
        nowUs - m_keyFrameUs < kKeyFrameUs) {
        return;
    }
    const TrackDescription* video = m_status.description.Video();  // written on this thread alone
    if (video != nullptr && video->pictureLoss) {
        AskByFeedback(nowUs);
    } else if (m_policy.NextUs(nowUs) <= nowUs) {
        m_keyFrameUs = nowUs;
        LeaveSession();
    }
    SetDue(0);
}

void CameraStream::AskByFeedback(std::int64_t nowUs) {
    m_keyFrameWanted = nowUs - m_keyFrameUs < kKeyFrameUs;
    if (!m_keyFrameWanted && m_session->RequestKeyframe()) {
        m_keyFrameUs = nowUs;
    }
}

void CameraStream::Restart() {
    LeaveSession();
    m_nextLookUs = 0;
    SetDue(0);
}

void CameraStream::LeaveSession() {
    if (m_session != nullptr) {
        m_session->Leave();
        m_leaving.push_back(std::move(m_session));
    }
}

void CameraStream::OnTimer(std::int64_t nowUs) {
    m_leaving.erase(std::remove_if(m_leaving.begin(), m_leaving.end(),
                                   [](const std::unique_ptr<CameraSession>& session) { return session->IsOver(); }),
                    m_leaving.end());
    const bool wanted = !m_senders.empty();
    const bool playing = m_session != nullptr && m_goal == CameraSession::Goal::Play;
    if (playing && !wanted && nowUs >= m_lingerUs) {
        LeaveSession();
        m_nextLookUs = nowUs + kLookUs;
    }
    SetDue(m_leaving.empty() ? kNever : nowUs + kSecondUs / 10);
    if (playing && !wanted) {
        SetDueBy(m_lingerUs);
    }
    if (m_session != nullptr) {
        if (m_keyFrameWanted && m_delivers && wanted) {
            AskByFeedback(nowUs);
            SetDueBy(m_keyFrameWanted ? m_keyFrameUs + kKeyFrameUs : kNever);
        }
        return;
    }
    const bool looks = m_looks && nowUs >= m_nextLookUs;
    if (!wanted && !looks) {
        SetDueBy(m_looks ? m_nextLookUs : kNever);
        return;
    }
    const std::int64_t allowedUs = m_policy.NextUs(nowUs);
    if (allowedUs > nowUs) {
        SetDueBy(allowedUs);
        return;
    }
    if (m_loop.MayConnect(*this, wanted)) {
        Begin(wanted ? CameraSession::Goal::Play : CameraSession::Goal::Describe, nowUs);
    }
}

void CameraStream::Begin(CameraSession::Goal goal, std::int64_t nowUs) {
    CameraSession::Plan plan;
    plan.goal = goal;
    plan.kind = m_kind;
    plan.overTcp = m_overTcp;
    plan.candidates = m_profiles.Candidates(m_profile);
    plan.noFramesUs = m_profiles.NoFramesSeconds() * kSecondUs;
    m_goal = goal;
    m_delivers = false;
    m_keyFrameWanted = false;  // a session begins with one
    m_policy.OnLogin(nowUs);
    GvxReportLoginTry(m_profile.device);
    m_session =
        std::make_unique<CameraSession>(m_loop, m_profile, std::move(plan), static_cast<ICameraSessionEvents&>(*this));
    m_session->Start();
}

void CameraStream::OnDescribed(const StreamDescription& description, const CameraPaths& paths) {
    if (m_kind == MAIN_STREAM) {  // a sub stream may be described on a row whose main stream is not there
        m_profiles.Remember(m_profile, paths);
    }
    if (!description.leftOut.empty() && description.leftOut != m_status.description.leftOut) {
        GVX_LOG_WARN(kTitle, "%s [%s]", description.leftOut.c_str(), m_profile.Url("").c_str());
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_status.described = true;
        m_status.description = description;
    }
    for (FrameSender* sender : m_senders) {
        sender->Begin(description);
    }
}

void CameraStream::OnUnit(const TrackDescription& track, const gvx::RtpAccessUnit& unit) {
    if (!m_delivers && track.video) {
        m_delivers = true;
        m_otherTried = false;
        m_policy.OnSuccess();
        SetState(CameraState::Online, "");
    }
    for (FrameSender* sender : m_senders) {
        sender->Send(track, unit);
    }
    if (unit.IsDamaged() && track.video) {
        AskByFeedback(NowUs());
        SetDueBy(m_keyFrameWanted ? m_keyFrameUs + kKeyFrameUs : kNever);
    }
}

void CameraStream::OnEnded(CameraState state, const std::string& reason, bool transportRefused) {
    const std::int64_t nowUs = NowUs();
    m_leaving.push_back(std::move(m_session));
    SetDue(0);
    m_nextLookUs = nowUs + kLookUs;
    if (state == CameraState::Online) {
        m_policy.OnSuccess();
    } else if (transportRefused && m_profile.transport == CameraTransport::Auto) {
        m_overTcp = !m_overTcp;
        m_policy.OnFailure(nowUs, RandomShare());
        m_nextLookUs = 0;
        // The other one may do: until it was tried the camera is not away.
        if (!std::exchange(m_otherTried, true)) {
            return;
        }
    } else if (state == CameraState::WrongPassword) {
        m_policy.OnRefusal(nowUs);
        m_policy.OnFailure(nowUs, RandomShare());
        m_nextLookUs = 0;
    } else {
        m_policy.OnFailure(nowUs, RandomShare());
        m_nextLookUs = 0;
    }
    SetState(state, reason);
}

void CameraStream::SetState(CameraState state, const std::string& reason) {
    bool changed = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        changed = m_status.state != state;
        m_status.state = state;
        m_status.reason = reason;
    }
    m_looked.notify_all();
    if (m_kind == MAIN_STREAM) {
        GvxReportDeviceState(m_profile.device, ReportedState(state), reason);
    }
    if (changed) {
        m_sink.OnCameraState(m_kind, state, reason);
    }
}

CameraStreamStatus CameraStream::Status() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_status;
}

CameraStreamStatus CameraStream::WaitForLook(std::chrono::milliseconds limit) const {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_looked.wait_for(lock, limit, [this] { return m_status.state != CameraState::Unknown || m_status.described; });
    return m_status;
}

}  // namespace gvxrtsp
