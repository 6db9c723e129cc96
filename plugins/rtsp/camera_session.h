#pragma once

#include "base/unique_fd.h"
#include "gvx_common/rtp/common_rtp_receiver.h"
#include "gvx_common/rtp/rtp_interleave.h"
#include "gvx_common/utility/gvx_device_trace.h"
#include "rtsp/camera_profile.h"
#include "rtsp/media_loop.h"
#include "rtsp/rtsp_dialogue.h"
#include "rtsp/stream_description.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace gvxrtsp {

// Why a session ended, or what a camera is like now.
enum class CameraState {
    Unknown,  // not asked yet
    Online,
    Offline,  // no connection, or it was lost
    Refused,  // the camera answers, and refuses
    WrongPassword,
    NoSuchStream,
    BadDescription,
    NoFrames,  // the stream runs and nothing comes
};

// The state in words, such as "wrong password".
const char* CameraStateName(CameraState state);

// What a session tells its stream, on the loop's thread. None of these may delete the session.
class ICameraSessionEvents {
public:
    virtual ~ICameraSessionEvents() = default;
    // DESCRIBE was answered; paths are those that did it.
    virtual void OnDescribed(const StreamDescription& description, const CameraPaths& paths) = 0;
    virtual void OnUnit(const TrackDescription& track, const gvx::RtpAccessUnit& unit) = 0;
    // The session is over; told once. reason is one sentence. transportRefused: another transport may do.
    virtual void OnEnded(CameraState state, const std::string& reason, bool transportRefused) = 0;
};

// One RTSP session with a camera (RFC 2326) from the connection to its end, driven by the events of a loop: OPTIONS,
// DESCRIBE, SETUP of each media, PLAY, and something now and then that keeps it alive. It belongs to the loop's thread,
// and never waits.
class CameraSession : private ILoopWatcher, public LoopTimer {
public:
    enum class Goal { Describe, Play };

    struct Plan {
        Goal goal = Goal::Play;
        StreamKind kind = MAIN_STREAM;
        bool overTcp = true;
        std::vector<CameraPaths> candidates;  // tried in order while the camera says 404
        std::int64_t noFramesUs = 10000000;
    };

    // All must outlive it.
    CameraSession(MediaLoop& loop, const CameraProfile& profile, Plan plan, ICameraSessionEvents& events);
    ~CameraSession() override;

    // Begins the connection; the end is told when that is not possible.
    void Start();

    // Says TEARDOWN where there is a session, and goes on until it is answered or a moment is gone; nothing is told any
    // more. IsOver says when the object can be deleted; it can at any time.
    void Leave();
    bool IsOver() const { return m_step == Step::Over; }

    // Asks for a whole picture by feedback. False when the camera offers none, or there is no picture to follow.
    bool RequestKeyframe();

    void OnTimer(std::int64_t nowUs) override;

private:
    enum class Step { Idle, Connecting, Options, Describe, Setup, Play, Playing, Leaving, Over };

    // One media that is received.
    struct Track : IRtpReceiverSink {
        Track(CameraSession& ownerOf, const TrackDescription& of) : owner(ownerOf), description(of), receiver(*this) {}
        void OnAccessUnit(const gvx::RtpAccessUnit& unit) override { owner.TakeUnit(*this, unit); }

        CameraSession& owner;
        TrackDescription description;
        int channel = 0;  // of interleaved packets
        std::int64_t dueUs = 0;
        CCommonRtpReceiver receiver;
    };

    void OnReady(int fd, std::uint32_t events) override;
    void FinishConnect();
    void LeaveConnecting();
    void ReadLink();
    void TakePacket(std::uint8_t channel, const std::uint8_t* data, std::size_t size);
    void TakeText(const char* text, std::size_t size);
    void TakeUnit(const Track& track, const gvx::RtpAccessUnit& unit);
    void TakeAnswer(const std::string& message);
    void TakeDescription(const std::string& message);
    void TakeSetup();
    void AnswerCamera(const std::string& message);

    void Ask(Step step, const std::string& method, const std::string& url, const RtspHeaders& headers);
    void AskDescribe();
    void AskSetup();
    void KeepAlive(std::int64_t nowUs);
    bool OpenTrack(Track& track);
    void CloseTracks();
    void Send(const char* data, std::size_t size);
    void ReportMessage(bool toDevice, const char* text, std::size_t size) const;
    bool SendInterleaved(int channel, const std::uint8_t* data, std::size_t size);
    void Flush();
    void Watch();
    void End(CameraState state, const std::string& reason, bool transportRefused = false);
    void CloseLink();
    void UpdateDue(std::int64_t nowUs);
    const std::string& Path() const;

    const CameraProfile& m_profile;
    const Plan m_plan;
    ICameraSessionEvents& m_events;
    RtspDialogue m_dialogue;
    gvx::RtpInterleaveReader m_reader;

    Step m_step = Step::Idle;
    gvx::UniqueFd m_link;
    std::string m_localIp;
    GvxTraceEnd m_localEnd;  // of the link
    GvxTraceEnd m_peerEnd;
    std::string m_out;       // what the link has not taken yet
    bool m_counted = false;  // among the loop's connections that are being made
    bool m_quiet = false;    // nothing is told any more
    bool m_ended = false;    // the link is to be closed once it is not in use on the stack
    std::size_t m_candidate = 0;
    std::string m_playUrl;
    std::vector<std::unique_ptr<Track>> m_tracks;
    std::size_t m_nextTrack = 0;
    std::vector<std::string> m_methods;
    bool m_asked = false;  // an answer is awaited
    std::int64_t m_answerDueUs = kNever;
    std::int64_t m_keepAliveUs = kNever;
    std::int64_t m_lastUnitUs = 0;
};

}  // namespace gvxrtsp
