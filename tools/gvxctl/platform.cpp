#include "gvxctl/platform.h"

#include "base/clock.h"
#include "gvxctl/progress.h"
#include "nss/nss_msg_type.h"

#include <chrono>

#include <unistd.h>

namespace gvxctl {
namespace {

constexpr const char* kMainServiceId = "GVX#000";
// Of no gateway's own node: a gateway forgets where the media unit of another node was as soon as its SCU leaves, and
// that of its own node never, so a port that another run has told would count for ever.
constexpr const char* kScuId = "SCU#gvxctl";
constexpr const char* kMuId = "MU#gvxctl";
constexpr const char* kOmuId = "OMU#001";

}  // namespace

std::string Response::Xml() const {
    std::string text;
    return frame.Item(NSS_TAG_XML_CONTENT, text) ? text : std::string();
}

std::string Response::Json() const {
    std::string text;
    return frame.Item(NSS_TAG_JSON_CONTENT, text) ? text : std::string();
}

Platform::Platform(Endpoint gateway, Watcher watcher, const PortRanges& ports)
    : m_gateway(std::move(gateway)),
      m_watcher(std::move(watcher)),
      m_answers(ports, [this](std::string& scuId, std::uint16_t& port) {
          scuId = kScuId;
          port = MuPort();
          return m_mu != nullptr;
      }) {}

bool Platform::LinkMainService(std::string& error, int timeoutMs) {
    return Link(m_main, kMainServiceId, timeoutMs, error);
}

bool Platform::LinkScu(std::string& error, int timeoutMs) {
    return Link(m_scu, kScuId, timeoutMs, error);
}

bool Platform::LinkOmu(std::string& error, int timeoutMs) {
    return Link(m_omu, kOmuId, timeoutMs, error);
}

bool Platform::Link(std::unique_ptr<PeerLink>& link, const char* linkId, int timeoutMs, std::string& error) {
    const Progress progress("linking to " + EndpointText(m_gateway) + " as " + linkId);
    std::unique_ptr<PeerLink> fresh = PeerLink::Connect(m_gateway, linkId, MakeHandler(), timeoutMs, error);
    const bool linked = fresh != nullptr;
    if (linked || link == nullptr) {
        link = std::move(fresh);
    }
    return linked;
}

PeerLink::Handler Platform::MakeHandler() {
    return [this](PeerLink& link, const Frame& frame) { OnFrame(link, frame); };
}

bool Platform::OpenMu(const Endpoint& local, std::string& error) {
    m_mu = std::make_unique<LinkListener>(kMuId, MakeHandler());
    return m_mu->Start(local, error);
}

bool Platform::WaitForMu(std::string& error, int timeoutMs) {
    const Progress progress("waiting for the gateway's link to the media unit");
    if (m_mu && m_mu->WaitForLink(timeoutMs)) {
        return true;
    }
    const std::string reason = m_mu ? m_mu->LastError() : "its port is not open";
    error = "the gateway has not linked to the media unit at port " + std::to_string(MuPort()) +
            (reason.empty() ? "" : ": " + reason);
    return false;
}

bool Platform::Request(std::uint16_t type, std::uint16_t tag, const std::string& body, Response& response,
                       std::string& error, int timeoutMs) {
    if (!m_main) {
        error = "there is no main-service link";
        return false;
    }
    if (m_relink && !m_main->IsOpen() && !LinkMainService(error)) {
        return false;
    }
    const Progress progress(std::string("waiting for the answer to ") + NssMsgTypeName(type));
    const std::int64_t begin = gvx::CurrentClock().MonotonicMicroseconds();
    FrameSpec spec;
    spec.type = type;
    spec.tag = tag;
    spec.body = body;
    const std::string transaction = OpenWait(spec);
    const bool sent = m_main->Send(spec);
    std::unique_ptr<Frame> answer = CloseWait(transaction, sent ? timeoutMs : 0);
    if (!answer) {
        error = std::string(NssMsgTypeName(type)) + (sent ? ": no response in time" : ": could not be sent") +
                (MainServiceOpen() ? "" : ", the link is closed: " + MainServiceCloseReason());
        return false;
    }
    response.requestType = type;
    response.code = answer->head.uiRspCode;
    response.elapsedMs = static_cast<double>(gvx::CurrentClock().MonotonicMicroseconds() - begin) / 1000.0;
    response.frame = std::move(*answer);
    return true;
}

// Numbers the request and gives its transaction.
std::string Platform::OpenWait(FrameSpec& request) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    request.seq = m_nextSeq++;
    request.transaction = "gvxctl-" + std::to_string(::getpid()) + "-" + std::to_string(request.seq);
    m_waits[request.transaction] = Wait{static_cast<std::uint16_t>(request.type + kNssResponseOffset), nullptr};
    return request.transaction;
}

std::unique_ptr<Frame> Platform::CloseWait(const std::string& transaction, int timeoutMs) {
    const std::int64_t end = gvx::MonotonicMilliseconds() + timeoutMs;
    std::unique_lock<std::mutex> lock(m_mutex);
    Wait& wait = m_waits[transaction];
    // In steps, so that a link that closes ends the wait.
    while (!wait.answer && gvx::MonotonicMilliseconds() < end && m_main->IsOpen()) {
        m_answered.wait_for(lock, std::chrono::milliseconds(50));
    }
    std::unique_ptr<Frame> answer = std::move(wait.answer);
    m_waits.erase(transaction);
    return answer;
}

std::vector<std::string> Platform::OpenLinks() const {
    std::vector<std::string> names;
    const auto add = [&names](bool open, const char* name) {
        if (open) {
            names.emplace_back(name);
        }
    };
    add(m_main && m_main->IsOpen(), "main service");
    add(m_scu && m_scu->IsOpen(), "SCU");
    add(m_omu && m_omu->IsOpen(), "OMU");
    add(m_mu && m_mu->IsLinked(), "MU");
    return names;
}

void Platform::OnFrame(PeerLink& link, const Frame& frame) {
    if (m_watcher) {
        m_watcher(link.LocalId(), frame);
    }
    if (frame.IsResponse()) {
        return Deliver(frame);
    }
    FrameSpec answer;
    if ((m_answerer && m_answerer(frame, answer)) || m_answers.Answer(frame, answer)) {
        link.Send(answer);
    }
}

void Platform::Deliver(const Frame& frame) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto wait = m_waits.find(frame.Transaction());
    if (wait == m_waits.end() || wait->second.answer || wait->second.responseType != frame.Type()) {
        return;  // nobody waits for it, or no longer
    }
    wait->second.answer = std::make_unique<Frame>(frame);
    m_answered.notify_all();
}

}  // namespace gvxctl
