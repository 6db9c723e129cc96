#include "gvxctl/peer_link.h"

#include "base/clock.h"
#include "base/json_io.h"
#include "base/zvs_error.h"
#include "gvxctl/frame_text.h"
#include "nss/nss_msg_type.h"

#include <json/value.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <sys/socket.h>

namespace gvxctl {
namespace {

constexpr int kSendTimeoutMs = 5000;
constexpr int kKeepAliveMs = 10000;  // a third of the silence after which the gateway closes a link
constexpr int kPollMs = 1000;

struct SharedTls {
    std::mutex mutex;                  // guards tls
    std::unique_ptr<BP::LinkTls> tls;  // null: links are plain
};

SharedTls& TheTls() {
    static SharedTls& shared = *new SharedTls;
    return shared;
}

std::string LinkIdBody(const std::string& linkId) {
    Json::Value body;
    body["LinkID"] = linkId;
    return gvx::WriteJson(body);
}

std::string LinkIdOf(const Frame& frame) {
    std::string text;
    Json::Value body;
    if (!frame.Item(NSS_TAG_JSON_CONTENT, text) || !gvx::ParseJson(text.data(), text.size(), body, nullptr)) {
        return std::string();
    }
    return gvx::JsonText(body, "LinkID");
}

}  // namespace

PeerLink::PeerLink(gvx::UniqueFd fd, std::string localId, Handler handler)
    : m_fd(std::move(fd)), m_localId(std::move(localId)), m_handler(std::move(handler)) {}

std::unique_ptr<PeerLink> PeerLink::Connect(const Endpoint& gateway, const std::string& linkId, Handler handler,
                                            int timeoutMs, std::string& error) {
    gvx::UniqueFd fd = ConnectTcp(gateway, timeoutMs, error);
    if (!fd.Valid()) {
        return nullptr;
    }
    std::unique_ptr<PeerLink> link(new PeerLink(std::move(fd), linkId, std::move(handler)));
    if (!link->Secure(true, timeoutMs, error) || !link->RegisterOut(timeoutMs, error)) {
        error = linkId + " at " + EndpointText(gateway) + ": " + error;
        return nullptr;
    }
    link->Start();
    return link;
}

std::unique_ptr<PeerLink> PeerLink::Accept(gvx::UniqueFd connection, const std::string& linkId, Handler handler,
                                           int timeoutMs, std::string& error) {
    std::unique_ptr<PeerLink> link(new PeerLink(std::move(connection), linkId, std::move(handler)));
    if (!link->Secure(false, timeoutMs, error) || !link->RegisterIn(timeoutMs, error)) {
        error = linkId + ": " + error;
        return nullptr;
    }
    link->Start();
    return link;
}

bool PeerLink::UseTls(const BP::LinkTlsFiles& files, std::string& error) {
    ::signal(SIGPIPE, SIG_IGN);  // TLS writes without a flag that would say so
    SharedTls& shared = TheTls();
    const std::lock_guard<std::mutex> guard(shared.mutex);
    shared.tls = BP::LinkTls::Load(files, &error);
    return shared.tls != nullptr;
}

bool PeerLink::Secure(bool outgoing, int timeoutMs, std::string& error) {
    {
        SharedTls& shared = TheTls();
        const std::lock_guard<std::mutex> guard(shared.mutex);
        if (shared.tls == nullptr) {
            return true;
        }
        m_session = shared.tls->Begin(m_fd.Get(), outgoing);
    }
    const std::int64_t end = gvx::MonotonicMilliseconds() + timeoutMs;
    while (m_session != nullptr) {
        const BP::TlsSession::Result result = m_session->Handshake();
        if (result == BP::TlsSession::Result::Done) {
            return true;
        }
        if (result == BP::TlsSession::Result::Ended || result == BP::TlsSession::Result::Failed) {
            error = result == BP::TlsSession::Result::Ended ? "the other side closed the link" : m_session->Fault();
            return false;
        }
        const int left = static_cast<int>(std::max<std::int64_t>(0, end - gvx::MonotonicMilliseconds()));
        const bool ready = result == BP::TlsSession::Result::WantRead ? WaitReadable(m_fd.Get(), left)
                                                                      : WaitWritable(m_fd.Get(), left);
        if (!ready) {
            error = "TLS was not agreed upon in time";
            return false;
        }
    }
    error = "no memory for TLS";
    return false;
}

bool PeerLink::IsWhoItSays(std::string& error) const {
    if (m_session == nullptr || m_session->PeerIs(m_remoteId)) {
        return true;
    }
    error = "the other side's certificate does not name " + m_remoteId;
    return false;
}

// As recv of the non-blocking socket.
ssize_t PeerLink::Receive(char* buffer, std::size_t length) {
    if (m_session == nullptr) {
        return ::recv(m_fd.Get(), buffer, length, 0);
    }
    const std::lock_guard<std::mutex> guard(m_sessionMutex);
    std::size_t got = 0;
    switch (m_session->Read(buffer, length, got)) {
        case BP::TlsSession::Result::Done:
            return static_cast<ssize_t>(got);
        case BP::TlsSession::Result::Ended:
            return 0;
        case BP::TlsSession::Result::Failed:
            errno = EPROTO;
            return -1;
        default:
            errno = EAGAIN;
            return -1;
    }
}

bool PeerLink::SendWhole(const std::string& bytes) {
    if (m_session == nullptr) {
        return SendAll(m_fd.Get(), bytes.data(), bytes.size(), kSendTimeoutMs);
    }
    const std::int64_t end = gvx::MonotonicMilliseconds() + kSendTimeoutMs;
    for (std::size_t at = 0; at < bytes.size();) {
        std::size_t put = 0;
        BP::TlsSession::Result result;
        {
            const std::lock_guard<std::mutex> guard(m_sessionMutex);
            result = m_session->Write(bytes.data() + at, bytes.size() - at, put);
        }
        at += put;
        const std::int64_t left = end - gvx::MonotonicMilliseconds();
        const bool waits = result == BP::TlsSession::Result::WantWrite || result == BP::TlsSession::Result::WantRead;
        if (result != BP::TlsSession::Result::Done &&
            (!waits || left <= 0 || !WaitWritable(m_fd.Get(), static_cast<int>(left)))) {
            return false;
        }
    }
    return true;
}

PeerLink::~PeerLink() {
    Close("closed by this side");
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

bool PeerLink::Send(const FrameSpec& spec) {
    return SendBytes(EncodeFrame(spec));
}

bool PeerLink::SendBytes(const std::string& bytes) {
    if (bytes.empty()) {
        return false;
    }
    const std::lock_guard<std::mutex> guard(m_sendMutex);
    if (!m_open || !SendWhole(bytes)) {
        Close("sending failed");  // a frame cut short would break the framing of all that follow
        return false;
    }
    m_lastSentMs = gvx::MonotonicMilliseconds();
    return true;
}

std::string PeerLink::CloseReason() const {
    const std::lock_guard<std::mutex> guard(m_reasonMutex);
    return m_reason;
}

bool PeerLink::RegisterOut(int timeoutMs, std::string& error) {
    FrameSpec spec;
    spec.type = NSS_BP_REGISTER_REQ;
    spec.seq = 1;
    spec.tag = NSS_TAG_JSON_CONTENT;
    spec.body = LinkIdBody(m_localId);
    Frame answer;
    if (!Send(spec)) {
        error = "the registration could not be sent";
        return false;
    }
    if (!ReadFrame(answer, gvx::MonotonicMilliseconds() + timeoutMs, error)) {
        error = "no answer to the registration: " + error;
        return false;
    }
    if (answer.Type() != NSS_BP_REGISTER_RSP || answer.head.uiRspCode != 0) {
        error = std::string("the registration was answered by ") + NssMsgTypeName(answer.Type()) + " code " +
                CodeText(answer.head.uiRspCode);
        return false;
    }
    m_remoteId = LinkIdOf(answer);
    return IsWhoItSays(error);
}

bool PeerLink::RegisterIn(int timeoutMs, std::string& error) {
    Frame request;
    if (!ReadFrame(request, gvx::MonotonicMilliseconds() + timeoutMs, error)) {
        error = "no registration: " + error;
        return false;
    }
    m_remoteId = LinkIdOf(request);
    const bool wellFormed = request.Type() == NSS_BP_REGISTER_REQ && !m_remoteId.empty();
    FrameSpec answer = ResponseTo(request, wellFormed ? 0u : static_cast<std::uint32_t>(ZVS_PARA_INVALID));
    answer.tag = NSS_TAG_JSON_CONTENT;
    answer.body = LinkIdBody(m_localId);
    if (!Send(answer) || !wellFormed) {
        error = std::string("the first frame is no registration but ") + NssMsgTypeName(request.Type());
        return false;
    }
    return IsWhoItSays(error);
}

// Reads what is there, at most one buffer. True when something came or the time ran out.
bool PeerLink::ReadSome(int timeoutMs, std::string& error) {
    if (!WaitReadable(m_fd.Get(), timeoutMs)) {
        return true;
    }
    std::array<char, 64 * 1024> buffer;
    const ssize_t count = Receive(buffer.data(), buffer.size());
    if (count > 0) {
        m_cutter.Feed(buffer.data(), static_cast<std::size_t>(count));
        return true;
    }
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        return true;
    }
    error = count == 0 ? "the other side closed the link" : std::strerror(errno);
    if (m_session != nullptr && !m_session->Fault().empty()) {
        error = m_session->Fault();
    }
    return false;
}

bool PeerLink::ReadFrame(Frame& frame, std::int64_t deadlineMs, std::string& error) {
    for (;;) {
        const FrameCutter::Result result = m_cutter.Next(frame, error);
        if (result != FrameCutter::Result::NeedMore) {
            return result == FrameCutter::Result::Ready;
        }
        const std::int64_t left = deadlineMs - gvx::MonotonicMilliseconds();
        if (left <= 0) {
            error = "time ran out";
            return false;
        }
        if (!ReadSome(static_cast<int>(left), error)) {
            return false;
        }
    }
}

void PeerLink::Start() {
    m_thread = std::thread([this] { Run(); });
}

void PeerLink::Run() {
    std::string error;
    while (m_open) {
        if (!ServeFrames(error) || !ReadSome(kPollMs, error)) {
            Close(error);
            return;
        }
        KeepAlive();
    }
}

bool PeerLink::ServeFrames(std::string& error) {
    Frame frame;
    for (;;) {
        const FrameCutter::Result result = m_cutter.Next(frame, error);
        if (result == FrameCutter::Result::NeedMore) {
            return true;
        }
        if (result == FrameCutter::Result::Broken) {
            return false;
        }
        if (frame.Type() == NSS_KEEPALIVE_REQ) {
            Send(ResponseTo(frame, 0));
        } else if (frame.Type() != NSS_KEEPALIVE_RSP) {
            m_handler(*this, frame);
        }
    }
}

void PeerLink::KeepAlive() {
    if (gvx::MonotonicMilliseconds() - m_lastSentMs < kKeepAliveMs) {
        return;
    }
    FrameSpec spec;
    spec.type = NSS_KEEPALIVE_REQ;
    Send(spec);
}

void PeerLink::Close(const std::string& reason) {
    if (m_open.exchange(false)) {
        {
            const std::lock_guard<std::mutex> guard(m_reasonMutex);
            m_reason = reason;
        }
        // The descriptor itself stays until the destructor, so that no thread meets a number that was given anew.
        ::shutdown(m_fd.Get(), SHUT_RDWR);
    }
}

}  // namespace gvxctl
