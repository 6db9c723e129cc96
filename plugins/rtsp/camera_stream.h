#pragma once

#include "rtsp/camera_session.h"
#include "rtsp/frame_sender.h"
#include "rtsp/login_policy.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace gvxrtsp {

// Learns what a camera's stream is like, on the loop's thread; told once a change.
class ICameraStateSink {
public:
    virtual ~ICameraStateSink() = default;
    virtual void OnCameraState(StreamKind kind, CameraState state, const std::string& reason) = 0;
};

// What is known of a stream, for any thread.
struct CameraStreamStatus {
    CameraState state = CameraState::Unknown;
    std::string reason;
    bool described = false;
    StreamDescription description;  // the latest
};

// One stream of a camera: one session for all who ask for it, kept for a while behind the last of them, and begun anew
// whenever it ends while somebody wants it. Without users it looks at the camera now and then, so that its state is
// known. It belongs to the loop's thread, but for Status and WaitForLook.
class CameraStream : private ICameraSessionEvents, private LoopTimer {
public:
    // All must outlive it. policy is shared by the streams of the camera, on the same thread. looks: whether it looks
    // without users.
    CameraStream(MediaLoop& loop, const CameraProfile& profile, CameraProfiles& profiles, LoginPolicy& policy,
                 StreamKind kind, bool looks, ICameraStateSink& sink);

    // A sender that has users; and one whose last user has left.
    void Join(FrameSender* sender);
    void Part(FrameSender* sender);

    // Asks the camera for a key frame: by feedback, else by beginning the session anew; once in two seconds.
    void RequestKeyframe();
    // Begins anew at once, as after a change of the password.
    void Restart();

    // Any thread. WaitForLook returns when the camera was asked to the end since the object was made, or after limit.
    CameraStreamStatus Status() const;
    CameraStreamStatus WaitForLook(std::chrono::milliseconds limit) const;

private:
    void OnDescribed(const StreamDescription& description, const CameraPaths& paths) override;
    void OnUnit(const TrackDescription& track, const gvx::RtpAccessUnit& unit) override;
    void OnEnded(CameraState state, const std::string& reason, bool transportRefused) override;
    void OnTimer(std::int64_t nowUs) override;

    void Begin(CameraSession::Goal goal, std::int64_t nowUs);
    void LeaveSession();
    void AskByFeedback(std::int64_t nowUs);
    void SetState(CameraState state, const std::string& reason);

    const CameraProfile& m_profile;
    CameraProfiles& m_profiles;
    LoginPolicy& m_policy;
    const StreamKind m_kind;
    const bool m_looks;
    ICameraStateSink& m_sink;

    std::vector<FrameSender*> m_senders;
    std::unique_ptr<CameraSession> m_session;
    CameraSession::Goal m_goal = CameraSession::Goal::Describe;
    std::vector<std::unique_ptr<CameraSession>> m_leaving;  // say good-bye, or wait to be deleted
    bool m_overTcp = true;
    bool m_otherTried = false;    // of the transports, since the last picture
    bool m_delivers = false;      // a picture came since the session began
    std::int64_t m_lingerUs = 0;  // until when a session without users stays
    std::int64_t m_nextLookUs = 0;
    std::int64_t m_keyFrameUs = 0;  // of the last request
    bool m_keyFrameWanted = false;  // by feedback, as soon as the last one is long enough ago

    mutable std::mutex m_mutex;  // guards what follows; nothing is taken below it
    mutable std::condition_variable m_looked;
    CameraStreamStatus m_status;
};

}  // namespace gvxrtsp
