#include "gvxctl/link_listener.h"

#include <chrono>

namespace gvxctl {
namespace {

constexpr int kPollMs = 200;
constexpr int kRegisterTimeoutMs = 10000;

}  // namespace

LinkListener::LinkListener(std::string linkId, PeerLink::Handler handler)
    : m_linkId(std::move(linkId)), m_handler(std::move(handler)) {}

LinkListener::~LinkListener() {
    m_running = false;
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

bool LinkListener::Start(const Endpoint& local, std::string& error) {
    m_listener = ListenTcp(local, error);
    if (!m_listener.Valid()) {
        return false;
    }
    m_port = LocalPort(m_listener.Get());
    m_running = true;
    m_thread = std::thread([this] { Run(); });
    return true;
}

bool LinkListener::WaitForLink(int timeoutMs) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_linked.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return m_link && m_link->IsOpen(); });
}

bool LinkListener::IsLinked() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_link && m_link->IsOpen();
}

bool LinkListener::SendBytes(const std::string& bytes) {
    std::shared_ptr<PeerLink> link;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        link = m_link;
    }
    return link && link->SendBytes(bytes);
}

void LinkListener::CloseLink() {
    std::shared_ptr<PeerLink> link;
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_link.swap(link);  // it ends when `link` goes out of scope, the lock has been given back then
}

std::string LinkListener::RemoteId() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_link ? m_link->RemoteId() : std::string();
}

std::string LinkListener::LastError() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_lastError;
}

void LinkListener::Run() {
    while (m_running) {
        std::string error;
        gvx::UniqueFd connection = AcceptTcp(m_listener.Get(), kPollMs, error);
        std::shared_ptr<PeerLink> link;
        if (connection.Valid()) {
            link = PeerLink::Accept(std::move(connection), m_linkId, m_handler, kRegisterTimeoutMs, error);
        }
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (!error.empty()) {
            m_lastError = error;
        }
        if (link) {
            m_link.swap(link);  // the older link ends when `link` goes out of scope
            m_linked.notify_all();
        }
    }
}

}  // namespace gvxctl
