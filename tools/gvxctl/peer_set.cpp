#include "gvxctl/peer_set.h"

#include "bp/registration.h"
#include "nss/nss_msg_type.h"

#include <algorithm>

namespace gvxctl {
namespace {

constexpr int kOpenTimeoutMs = 10000;
constexpr int kScu = 10105;
constexpr int kMainService = 40105;

// As the gateway pairs them: "SCU#007" has "MU#007".
std::string MuOf(const std::string& scuId) {
    return "MU" + scuId.substr(std::min<std::size_t>(3, scuId.size()));
}

Frame FrameOf(const FrameSpec& spec) {
    const std::string bytes = EncodeFrame(spec);
    FrameCutter cutter;
    Frame frame;
    std::string error;
    cutter.Feed(bytes.data(), bytes.size());
    cutter.Next(frame, error);
    return frame;
}

}  // namespace

PeerSet::PeerSet(Endpoint gateway, const PortRanges& ports, Watcher watcher)
    : m_gateway(std::move(gateway)),
      m_watcher(std::move(watcher)),
      m_answers(ports, [this](std::string& scuId, std::uint16_t& port) { return NextAskedScu(scuId, port); }) {}

// The links end while everything that their threads use is there.
PeerSet::~PeerSet() {
    std::map<std::string, std::shared_ptr<PeerLink>> links;
    std::map<std::string, std::shared_ptr<LinkListener>> listeners;
    const std::lock_guard<std::mutex> guard(m_mutex);
    links.swap(m_links);
    listeners.swap(m_listeners);
}

PeerLink::Handler PeerSet::MakeHandler() {
    return [this](PeerLink& link, const Frame& frame) { OnFrame(link, frame); };
}

bool PeerSet::MainServiceOpenLocked() const {
    return std::any_of(m_links.begin(), m_links.end(), [](const auto& entry) {
        return BP::ElementTypeOf(entry.first) == kMainService && entry.second->IsOpen();
    });
}

bool PeerSet::Open(const std::string& linkId, std::string& error) {
    std::shared_ptr<PeerLink> old;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        std::shared_ptr<PeerLink>& place = m_links[linkId];
        if (place && place->IsOpen()) {
            error = linkId + " is open already";
            return false;
        }
        old.swap(place);
        m_links.erase(linkId);
        // The question can come in before the registration's answer has been looked at. It names no SCU, so the order
        // of the links tells whom it is about; without a main service it never leaves the gateway.
        if (BP::ElementTypeOf(linkId) == kScu && MainServiceOpenLocked()) {
            m_askedFor.push_back(linkId);
        }
    }
    std::shared_ptr<PeerLink> link = PeerLink::Connect(m_gateway, linkId, MakeHandler(), kOpenTimeoutMs, error);
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (!link) {
        m_askedFor.erase(std::remove(m_askedFor.begin(), m_askedFor.end(), linkId), m_askedFor.end());
        return false;
    }
    m_links[linkId] = std::move(link);
    return true;
}

bool PeerSet::Listen(const std::string& linkId, const Endpoint& local, std::string& error) {
    if (PortOf(linkId) != 0) {
        error = linkId + " is listened for already";
        return false;
    }
    auto listener = std::make_shared<LinkListener>(linkId, MakeHandler());
    if (!listener->Start(local, error)) {
        return false;
    }
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_listeners[linkId] = std::move(listener);
    return true;
}

bool PeerSet::Close(const std::string& linkId, bool stop, std::string& error) {
    std::shared_ptr<PeerLink> link;
    std::shared_ptr<LinkListener> listener;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        const auto found = m_links.find(linkId);
        if (found != m_links.end()) {
            link = std::move(found->second);
            m_links.erase(found);
        }
        const auto waiting = m_listeners.find(linkId);
        if (waiting != m_listeners.end()) {
            listener = waiting->second;
            if (stop) {
                m_listeners.erase(waiting);
            }
        }
        m_askedFor.erase(std::remove(m_askedFor.begin(), m_askedFor.end(), linkId), m_askedFor.end());
    }
    if (listener) {
        listener->CloseLink();
    }
    error = linkId + " is not open";
    return link != nullptr || listener != nullptr;
}

bool PeerSet::IsOpen(const std::string& linkId) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto link = m_links.find(linkId);
    const auto listener = m_listeners.find(linkId);
    return (link != m_links.end() && link->second->IsOpen()) ||
           (listener != m_listeners.end() && listener->second->IsLinked());
}

std::uint16_t PeerSet::PortOf(const std::string& linkId) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto listener = m_listeners.find(linkId);
    return listener == m_listeners.end() ? static_cast<std::uint16_t>(0) : listener->second->Port();
}

std::string PeerSet::CloseReason(const std::string& linkId) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto link = m_links.find(linkId);
    if (link != m_links.end()) {
        return link->second->CloseReason();
    }
    const auto listener = m_listeners.find(linkId);
    return listener == m_listeners.end() ? std::string() : listener->second->LastError();
}

bool PeerSet::SendBytes(const std::string& linkId, const std::string& bytes) {
    std::shared_ptr<PeerLink> link;
    std::shared_ptr<LinkListener> listener;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        const auto found = m_links.find(linkId);
        const auto waiting = m_listeners.find(linkId);
        link = found == m_links.end() ? nullptr : found->second;
        listener = waiting == m_listeners.end() ? nullptr : waiting->second;
    }
    return link ? link->SendBytes(bytes) : listener && listener->SendBytes(bytes);
}

bool PeerSet::Send(const std::string& linkId, const FrameSpec& spec, std::string& error) {
    const std::string bytes = EncodeFrame(spec);
    if (bytes.empty()) {
        error = "the frame cannot be built: body or transaction is too long";
        return false;
    }
    // First, so that an answer never stands ahead of its request.
    TellSent(linkId, spec, std::string());
    if (!SendBytes(linkId, bytes)) {
        error = linkId + " is not open";
        return false;
    }
    return true;
}

void PeerSet::OnFrame(PeerLink& link, const Frame& frame) {
    const std::string& linkId = link.LocalId();
    if (frame.IsResponse()) {
        return Tell(linkId, true, frame, std::string());
    }
    AnswerRule rule;
    const bool ruled = m_rules.Take(frame.Type(), linkId, rule);
    Tell(linkId, true, frame, ruled ? RuleText(rule) : std::string());
    FrameSpec answer;
    const bool known = m_answers.Answer(frame, answer);
    if (!known && !ruled) {
        return;
    }
    answer = ApplyRule(rule, known ? answer : ResponseTo(frame, 0));
    if (rule.delayMs > 0) {
        return AnswerLater(linkId, rule, answer);
    }
    const std::string bytes = AnswerBytes(rule, answer);
    if (!bytes.empty()) {
        TellSent(linkId, answer, ruled ? RuleText(rule) : std::string());
        link.SendBytes(bytes);
    }
}

// By identifier: the link may have closed and opened anew meanwhile, and a late answer then comes on the new one.
void PeerSet::AnswerLater(const std::string& linkId, const AnswerRule& rule, const FrameSpec& answer) {
    const std::string bytes = AnswerBytes(rule, answer);
    if (bytes.empty()) {
        return;
    }
    m_later.Do(rule.delayMs, [this, linkId, rule, answer, bytes] {
        TellSent(linkId, answer, RuleText(rule));
        SendBytes(linkId, bytes);
    });
}

void PeerSet::Tell(const std::string& linkId, bool incoming, const Frame& frame, const std::string& note) {
    m_watcher(Traffic{linkId, incoming, frame, note});
}

void PeerSet::TellSent(const std::string& linkId, const FrameSpec& spec, const std::string& note) {
    Tell(linkId, false, FrameOf(spec), note);
}

bool PeerSet::NextAskedScu(std::string& scuId, std::uint16_t& port) {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (m_askedFor.empty()) {
            return false;
        }
        scuId = m_askedFor.front();
        m_askedFor.pop_front();
    }
    port = PortOf(MuOf(scuId));
    return port != 0;
}

}  // namespace gvxctl
