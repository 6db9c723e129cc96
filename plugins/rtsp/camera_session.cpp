#include "rtsp/camera_session.h"

#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/log.h"
#include "gvx_common/records/rtp_payload.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace gvxrtsp {
namespace {

constexpr const char* kTitle = "rtsp plug-in";
constexpr std::int64_t kSecondUs = 1000000;
constexpr std::int64_t kConnectUs = 3 * kSecondUs;
constexpr std::int64_t kAnswerUs = 10 * kSecondUs;
constexpr std::int64_t kLeaveUs = kSecondUs / 2;
constexpr std::int64_t kReceiverTimerUs = 1000;
constexpr std::size_t kMaxOut = 64 * 1024;

std::int64_t NowUs() {
    return gvx::CurrentClock().MonotonicMicroseconds();
}

// The numbers of "name=a-b" or "name=a" in a Transport head; false when it does not stand there, or they are above
// most.
bool ReadPair(const std::string& transport, const char* name, long most, int& first, int& second) {
    const std::size_t at = transport.find(name);
    if (at == std::string::npos) {
        return false;
    }
    const char* from = transport.c_str() + at + std::strlen(name);
    char* end = nullptr;
    const long one = std::strtol(from, &end, 10);
    const long other = *end == '-' ? std::strtol(end + 1, nullptr, 10) : one;
    if (end == from || one < 0 || one >= most || other < 0 || other > most) {
        return false;
    }
    first = static_cast<int>(one);
    second = *end == '-' ? static_cast<int>(other) : first + 1;
    return true;
}

std::string ReadWord(const std::string& transport, const char* name) {
    const std::size_t at = transport.find(name);
    if (at == std::string::npos) {
        return {};
    }
    const std::size_t from = at + std::strlen(name);
    return transport.substr(from, transport.find(';', from) - from);
}

// A request may hold a password that is only encoded.
void Wipe(std::string& text) {
    memset_s(text.data(), text.size(), 0, text.size());
    text.clear();
}

// 461 says it; servers that know one transport alone also take the request for a bad one.
bool RefusesTransport(int status) {
    return status == 461 || status == 400 || status == 406 || status == 501;
}

CameraState StateOf(RtspDialogue::Outcome outcome) {
    switch (outcome) {
        case RtspDialogue::Outcome::Refused:
            return CameraState::WrongPassword;
        case RtspDialogue::Outcome::NotFound:
            return CameraState::NoSuchStream;
        default:
            return CameraState::Refused;
    }
}

}  // namespace

const char* CameraStateName(CameraState state) {
    constexpr const char* kNames[] = {"unknown",        "online",         "offline",         "refused",
                                      "wrong password", "no such stream", "bad description", "no frames"};
    return kNames[static_cast<std::size_t>(state)];
}

CameraSession::CameraSession(MediaLoop& loop, const CameraProfile& profile, Plan plan, ICameraSessionEvents& events)
    : LoopTimer(loop),
      m_profile(profile),
      m_plan(std::move(plan)),
      m_events(events),
      m_dialogue(profile.user, profile.password),
      m_reader(
          [this](std::uint8_t channel, const std::uint8_t* data, std::size_t size) { TakePacket(channel, data, size); },
          [this](const char* text, std::size_t size) { TakeText(text, size); }) {}

CameraSession::~CameraSession() {
    m_quiet = true;
    CloseLink();
}

const std::string& CameraSession::Path() const {
    const CameraPaths& paths = m_plan.candidates[m_candidate];
    return m_plan.kind == SUB_STREAM && !paths.sub.empty() ? paths.sub : paths.main;
}

void CameraSession::Start() {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(m_profile.port);
    m_link.Reset(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!m_link.Valid() || inet_pton(AF_INET, m_profile.address.c_str(), &to.sin_addr) != 1) {
        End(CameraState::Offline, std::string("A connection cannot be made: ") + std::strerror(errno) + ".");
        return;
    }
    const int on = 1;
    setsockopt(m_link.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    m_step = Step::Connecting;
    m_counted = true;
    m_loop.AddConnecting(1);
    m_answerDueUs = NowUs() + kConnectUs;
    if (connect(m_link.Get(), reinterpret_cast<const sockaddr*>(&to), sizeof(to)) != 0 && errno != EINPROGRESS) {
        End(CameraState::Offline, std::string("No connection: ") + std::strerror(errno) + ".");
        return;
    }
    if (!m_loop.Watch(m_link.Get(), EPOLLOUT, this)) {
        End(CameraState::Offline, "The connection cannot be watched.");
        return;
    }
    UpdateDue(NowUs());
}

void CameraSession::LeaveConnecting() {
    if (std::exchange(m_counted, false)) {
        m_loop.AddConnecting(-1);
    }
}

void CameraSession::FinishConnect() {
    int fault = 0;
    LeaveConnecting();
    socklen_t size = sizeof(fault);
    getsockopt(m_link.Get(), SOL_SOCKET, SO_ERROR, &fault, &size);
    if (fault != 0) {
        End(CameraState::Offline, std::string("No connection: ") + std::strerror(fault) + ".");
        return;
    }
    sockaddr_in local{};
    size = sizeof(local);
    char text[INET_ADDRSTRLEN] = {};
    if (getsockname(m_link.Get(), reinterpret_cast<sockaddr*>(&local), &size) == 0 &&
        inet_ntop(AF_INET, &local.sin_addr, text, sizeof(text)) != nullptr) {
        m_localIp = text;
    }
    m_localEnd = GvxTraceEndOfSocket(m_link.Get(), false);
    m_peerEnd = GvxTraceEndOfSocket(m_link.Get(), true);
    Ask(Step::Options, "OPTIONS", m_profile.Url(Path()), {});
}

void CameraSession::OnReady(int fd, std::uint32_t events) {
    if (fd != m_link.Get()) {
        for (const std::unique_ptr<Track>& track : m_tracks) {
            if (fd == track->receiver.GetHandle()) {
                track->receiver.Receive();
            } else if (fd == track->receiver.GetControlHandle()) {
                track->receiver.ReceiveControl();
            }
        }
        UpdateDue(NowUs());
        return;
    }
    if (m_step == Step::Connecting) {
        FinishConnect();
    } else {
        if ((events & EPOLLOUT) != 0) {
            Flush();
        }
        if (!m_ended && (events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) {
            ReadLink();
        }
    }
    if (m_ended) {
        CloseLink();
    } else {
        UpdateDue(NowUs());
    }
}

void CameraSession::ReadLink() {
    const int result = m_reader.Receive(m_link.Get());
    if (result != 0 && !m_ended) {
        End(CameraState::Offline, result == 1 ? "The camera has closed the connection." : "The connection is broken.");
    }
}

void CameraSession::TakePacket(std::uint8_t channel, const std::uint8_t* data, std::size_t size) {
    if (m_ended || m_step == Step::Leaving) {
        return;
    }
    for (const std::unique_ptr<Track>& track : m_tracks) {
        if (channel == track->channel) {
            track->receiver.Push(data, size);
        } else if (channel == track->channel + 1) {
            track->receiver.PushControl(data, size);
        }
    }
}

void CameraSession::TakeUnit(const Track& track, const gvx::RtpAccessUnit& unit) {
    if (m_quiet || m_step == Step::Leaving) {
        return;
    }
    if (track.description.video) {
        m_lastUnitUs = NowUs();
    }
    m_events.OnUnit(track.description, unit);
}

void CameraSession::TakeText(const char* text, std::size_t size) {
    ReportMessage(false, text, size);
    const std::string message(text, size);
    if (m_ended || m_step == Step::Over) {
        return;
    }
    if (message.compare(0, 5, "RTSP/") != 0) {
        AnswerCamera(message);
    } else if (m_asked && m_dialogue.IsAnswer(message)) {
        m_asked = false;
        TakeAnswer(message);
    }
}

// A camera may ask too (RFC 2326, section 10): it learns that this end takes nothing but OPTIONS.
void CameraSession::AnswerCamera(const std::string& message) {
    std::string answer = message.compare(0, 8, "OPTIONS ") == 0 ? "RTSP/1.0 200 OK\r\nPublic: OPTIONS\r\n"
                                                                : "RTSP/1.0 501 Not Implemented\r\n";
    const std::size_t number = message.find("\r\nCSeq:");
    if (number != std::string::npos) {
        answer += message.substr(number + 2, message.find("\r\n", number + 2) - number);
    }
    answer += "\r\n";
    Send(answer.data(), answer.size());
}

void CameraSession::TakeAnswer(const std::string& message) {
    using Outcome = RtspDialogue::Outcome;
    m_answerDueUs = kNever;
    const Outcome outcome = m_dialogue.TakeAnswer(message);
    const std::string words = m_dialogue.Method() + " was answered \"" + StatusLine(message) + "\".";
    if (m_step == Step::Leaving) {
        End(CameraState::Unknown, "");
        return;
    }
    if (outcome == Outcome::Again) {
        std::string request;
        if (!m_dialogue.BuildAgain(request)) {
            End(CameraState::Refused,
                "The camera asks for credentials in a form that is not given, such as Basic where "
                "AUTH_ALLOW_BASIC forbids it.");
            return;
        }
        m_asked = true;
        m_answerDueUs = NowUs() + kAnswerUs;
        Send(request.data(), request.size());
        Wipe(request);
        return;
    }
    if (outcome == Outcome::Refused) {
        End(CameraState::WrongPassword, "The camera refuses user or password.");
        return;
    }
    switch (m_step) {
        case Step::Options:
            m_methods = m_dialogue.MethodNames();
            AskDescribe();
            break;
        case Step::Describe:
            if (outcome == Outcome::NotFound && m_candidate + 1 < m_plan.candidates.size()) {
                ++m_candidate;
                AskDescribe();
            } else if (outcome == Outcome::Done) {
                TakeDescription(message);
            } else {
                End(StateOf(outcome), words);
            }
            break;
        case Step::Setup:
            if (outcome == Outcome::Done) {
                TakeSetup();
            } else {
                End(StateOf(outcome), words, RefusesTransport(m_dialogue.Status()));
            }
            break;
        case Step::Play:
            if (outcome != Outcome::Done) {
                End(StateOf(outcome), words);
                break;
            }
            m_step = Step::Playing;
            m_lastUnitUs = NowUs();
            m_keepAliveUs = NowUs() + m_dialogue.SessionSeconds() * kSecondUs / 3;
            break;
        case Step::Playing:
            if (outcome == Outcome::NoSession) {
                End(CameraState::Offline, "The camera has forgotten the session.");
            }
            break;
        default:
            break;
    }
}

void CameraSession::AskDescribe() {
    Ask(Step::Describe, "DESCRIBE", m_profile.Url(Path()), {{"Accept", "application/sdp"}});
}

void CameraSession::TakeDescription(const std::string& message) {
    const std::size_t body = message.find("\r\n\r\n");
    std::string base = m_dialogue.Header("Content-Base");
    if (base.compare(0, 7, "rtsp://") != 0) {
        base = m_profile.Url(Path());
    }
    StreamDescription description;
    std::string error;
    if (body == std::string::npos || !ReadDescription(message.substr(body + 4), base, description, error)) {
        End(CameraState::BadDescription, error.empty() ? "The answer to DESCRIBE has no description." : error);
        return;
    }
    m_events.OnDescribed(description, m_plan.candidates[m_candidate]);
    if (m_plan.goal == Goal::Describe) {
        End(CameraState::Online, "");
        return;
    }
    m_playUrl = base;
    for (const TrackDescription& track : description.tracks) {
        m_tracks.push_back(std::make_unique<Track>(*this, track));
    }
    AskSetup();
}

void CameraSession::AskSetup() {
    Track& track = *m_tracks[m_nextTrack];
    std::string transport;
    track.channel = static_cast<int>(2 * m_nextTrack);
    if (!OpenTrack(track)) {
        End(CameraState::Offline, "The sockets for the camera's stream cannot be opened.");
        return;
    }
    if (m_plan.overTcp) {
        transport = "RTP/AVP/TCP;unicast;interleaved=" + std::to_string(track.channel) + "-" +
                    std::to_string(track.channel + 1);
    } else {
        const int port = track.receiver.GetPort();
        transport = "RTP/AVP;unicast;client_port=" + std::to_string(port) + "-" + std::to_string(port + 1);
    }
    Ask(Step::Setup, "SETUP", track.description.url, {{"Transport", transport}});
}

bool CameraSession::OpenTrack(Track& track) {
    RtpReceiverParams params;
    params.endpoint.strLocalIp = m_localIp;
    params.endpoint.strRemoteIp = m_profile.address;
    params.endpoint.uiClockRate = track.description.clockRate;
    params.endpoint.strDevice = m_profile.device;
    params.endpoint.linkLocal = m_localEnd;
    params.endpoint.linkPeer = m_peerEnd;
    params.codec = track.description.codec;
    params.iPayloadType = track.description.payloadType;
    params.aac = track.description.aac;
    params.bPictureLoss = track.description.pictureLoss;
    if (m_plan.overTcp) {
        const int channel = track.channel;
        params.endpoint.interleavedSend = [this, channel](enRtpFlow flow, const std::uint8_t* data, std::size_t size) {
            return SendInterleaved(channel + (flow == RTP_FLOW_CONTROL ? 1 : 0), data, size);
        };
    }
    if (track.receiver.Open(params) != 0) {
        return false;
    }
    return m_plan.overTcp || (m_loop.Watch(track.receiver.GetHandle(), EPOLLIN, this) &&
                              m_loop.Watch(track.receiver.GetControlHandle(), EPOLLIN, this));
}

void CameraSession::TakeSetup() {
    Track& track = *m_tracks[m_nextTrack];
    const std::string transport = m_dialogue.Header("Transport");
    int first = 0;
    int second = 0;
    if (m_plan.overTcp) {
        if (transport.find("TCP") == std::string::npos) {
            End(CameraState::Refused, "The camera does not send over the connection.", true);
            return;
        }
        if (ReadPair(transport, "interleaved=", UINT8_MAX, first, second)) {
            track.channel = first;
        }
    } else if (ReadPair(transport, "server_port=", UINT16_MAX, first, second) && first > 0) {
        const std::string source = ReadWord(transport, "source=");
        in_addr address{};
        const bool named = inet_pton(AF_INET, source.c_str(), &address) == 1;
        track.receiver.SetRemote(named ? source : m_profile.address, static_cast<std::uint16_t>(first),
                                 static_cast<std::uint16_t>(second));
    }
    if (++m_nextTrack < m_tracks.size()) {
        AskSetup();
        return;
    }
    Ask(Step::Play, "PLAY", m_playUrl, {{"Range", "npt=0.000-"}});
}

void CameraSession::Ask(Step step, const std::string& method, const std::string& url, const RtspHeaders& headers) {
    std::string request;
    m_step = step;
    if (!m_dialogue.Build(method, url, headers, request)) {
        End(CameraState::Refused, "The request " + method + " cannot be built from the camera's description.");
        return;
    }
    m_asked = true;
    m_answerDueUs = NowUs() + kAnswerUs;
    Send(request.data(), request.size());
    Wipe(request);
}

void CameraSession::KeepAlive(std::int64_t nowUs) {
    const auto offers = [this](const char* name) {
        return std::find(m_methods.begin(), m_methods.end(), name) != m_methods.end();
    };
    std::string method = m_profile.keepAlive;
    if (method.empty()) {
        method = offers("GET_PARAMETER")                         ? "GET_PARAMETER"
                 : offers("SET_PARAMETER") && !offers("OPTIONS") ? "SET_PARAMETER"
                                                                 : "OPTIONS";
    }
    m_keepAliveUs = nowUs + m_dialogue.SessionSeconds() * kSecondUs / 3;
    if (!m_asked) {
        Ask(Step::Playing, method, m_playUrl, {});
    }
}

bool CameraSession::RequestKeyframe() {
    return m_step == Step::Playing && !m_tracks.empty() && m_tracks.front()->receiver.RequestKeyframe() == 0;
}

void CameraSession::ReportMessage(bool toDevice, const char* text, std::size_t size) const {
    GvxDialogueMessage message;
    message.pszProtocol = "RTSP";
    message.bToDevice = toDevice;
    message.local = m_localEnd;
    message.peer = m_peerEnd;
    message.pszText = text;
    message.nLength = size;
    GvxReportDialogue(m_profile.device, message);
}

void CameraSession::Send(const char* data, std::size_t size) {
    ReportMessage(true, data, size);
    if (m_out.size() + size > kMaxOut) {
        End(CameraState::Offline, "The camera reads nothing.");
        return;
    }
    m_out.append(data, size);
    Flush();
}

// A report is either queued whole or dropped: half of one would break the framing.
bool CameraSession::SendInterleaved(int channel, const std::uint8_t* data, std::size_t size) {
    if (size > 0xFFFF || m_out.size() + size + gvx::kInterleaveLen > kMaxOut || !m_link.Valid() || m_ended) {
        return false;
    }
    const char head[] = {'$', static_cast<char>(channel), static_cast<char>(size >> 8), static_cast<char>(size)};
    m_out.append(head, sizeof(head));
    m_out.append(reinterpret_cast<const char*>(data), size);
    Flush();
    return true;
}

void CameraSession::Flush() {
    while (!m_out.empty() && m_link.Valid()) {
        const ssize_t sent = send(m_link.Get(), m_out.data(), m_out.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0) {
            if (errno != EAGAIN) {
                End(CameraState::Offline, std::string("The connection is broken: ") + std::strerror(errno) + ".");
                return;
            }
            break;
        }
        std::string rest = m_out.substr(static_cast<std::size_t>(sent));
        Wipe(m_out);
        m_out = std::move(rest);
    }
    Watch();
}

void CameraSession::Watch() {
    if (m_link.Valid() && !m_ended && !m_loop.Watch(m_link.Get(), m_out.empty() ? EPOLLIN : EPOLLIN | EPOLLOUT, this)) {
        End(CameraState::Offline, "The connection cannot be watched.");
    }
}

void CameraSession::OnTimer(std::int64_t nowUs) {
    if (m_step == Step::Over || m_ended) {
        CloseLink();
        return;
    }
    for (const std::unique_ptr<Track>& track : m_tracks) {
        if (track->receiver.IsOpen() && track->dueUs <= nowUs) {
            track->dueUs = nowUs + track->receiver.OnTimer() * std::int64_t{1000};
        }
    }
    if (nowUs >= m_answerDueUs) {
        End(CameraState::Offline, m_step == Step::Connecting ? "No connection within three seconds."
                                                             : m_dialogue.Method() + " was not answered.");
    } else if (m_step == Step::Playing && nowUs - m_lastUnitUs >= m_plan.noFramesUs) {
        End(CameraState::NoFrames,
            "No picture came for " + std::to_string(m_plan.noFramesUs / kSecondUs) + " seconds.");
    } else if (m_step == Step::Playing && nowUs >= m_keepAliveUs) {
        KeepAlive(nowUs);
    }
    if (m_ended) {
        CloseLink();
    } else {
        UpdateDue(nowUs);
    }
}

void CameraSession::UpdateDue(std::int64_t nowUs) {
    if (m_ended) {
        SetDue(0);
        return;
    }
    std::int64_t dueUs = std::min(m_answerDueUs, m_keepAliveUs);
    if (m_step == Step::Playing) {
        dueUs = std::min(dueUs, m_lastUnitUs + m_plan.noFramesUs);
    }
    for (const std::unique_ptr<Track>& track : m_tracks) {
        if (!track->receiver.IsOpen()) {
            continue;
        }
        const std::int64_t orderUs = track->receiver.OrderDueUs();
        if (orderUs >= 0) {
            track->dueUs = std::min(track->dueUs, std::max(orderUs, nowUs + kReceiverTimerUs));
        }
        dueUs = std::min(dueUs, track->dueUs);
    }
    SetDue(dueUs);
}

void CameraSession::Leave() {
    m_quiet = true;
    if (m_step == Step::Over || m_ended) {
        CloseLink();
        return;
    }
    CloseTracks();
    if (m_dialogue.Session().empty() || !m_link.Valid()) {
        CloseLink();
        return;
    }
    Ask(Step::Leaving, "TEARDOWN", m_playUrl, {});
    m_answerDueUs = NowUs() + kLeaveUs;
    if (m_ended) {
        CloseLink();
    } else {
        UpdateDue(NowUs());
    }
}

// The reader and the receivers may be on the stack: what they use goes later, from OnReady or OnTimer.
void CameraSession::End(CameraState state, const std::string& reason, bool transportRefused) {
    if (m_ended) {
        return;
    }
    m_ended = true;
    SetDue(0);
    if (!m_quiet) {
        m_quiet = true;
        m_events.OnEnded(state, reason, transportRefused);
    }
}

void CameraSession::CloseTracks() {
    for (const std::unique_ptr<Track>& track : m_tracks) {
        for (const int fd : {track->receiver.GetHandle(), track->receiver.GetControlHandle()}) {
            if (fd >= 0) {
                m_loop.Unwatch(fd);
            }
        }
        track->receiver.Close();
    }
}

void CameraSession::CloseLink() {
    CloseTracks();
    LeaveConnecting();
    if (m_link.Valid()) {
        m_loop.Unwatch(m_link.Get());
        m_link.Reset();
    }
    m_step = Step::Over;
    m_ended = true;
    SetDue(kNever);
}

}  // namespace gvxrtsp
