#pragma once

#include "gvxctl/default_answers.h"
#include "gvxctl/link_listener.h"
#include "gvxctl/peer_link.h"

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace gvxctl {

// The gateway's answer to one request.
struct Response {
    std::uint16_t requestType = 0;
    std::uint32_t code = 0;
    double elapsedMs = 0;
    Frame frame;

    std::string Xml() const;
    std::string Json() const;
};

// The platform as the gateway sees it: main service and SCU and OMU call the gateway, the MU is called by it. Requests
// go out and answers come in on the main-service link. What DefaultAnswers knows is answered by itself.
class Platform {
public:
    // Sees every frame that comes in, on the thread of its link. May be empty.
    using Watcher = std::function<void(const std::string& linkId, const Frame& frame)>;

    // Answers a request of the gateway; false leaves it to DefaultAnswers. On the thread of its link. May be empty.
    using Answerer = std::function<bool(const Frame& request, FrameSpec& answer)>;

    explicit Platform(Endpoint gateway, Watcher watcher = nullptr, const PortRanges& ports = PortRanges());

    // Opens the port that the SCU will tell the gateway. Before the first link.
    bool OpenMu(const Endpoint& local, std::string& error);
    // Each links one peer, the main service first: the gateway's questions to the others leave by its link.
    bool LinkMainService(std::string& error, int timeoutMs = 10000);
    bool LinkScu(std::string& error, int timeoutMs = 10000);
    bool LinkOmu(std::string& error, int timeoutMs = 10000);
    // Waits until the gateway has linked to the MU. One that has lost it tries again within 30 s.
    bool WaitForMu(std::string& error, int timeoutMs = 45000);

    // Sends a request on the main-service link and waits for its response, which repeats the transaction. Any
    // thread but a link's; several threads may wait at once.
    bool Request(std::uint16_t type, std::uint16_t tag, const std::string& body, Response& response, std::string& error,
                 int timeoutMs = 15000);

    // Before the first link.
    void SetAnswerer(Answerer answerer) { m_answerer = std::move(answerer); }

    // From now on a request links anew first where another main service has taken the link over. For a caller that
    // sends from one thread.
    void RelinkWhenClosed() { m_relink = true; }

    bool MainServiceOpen() const { return m_main && m_main->IsOpen(); }
    std::string MainServiceCloseReason() const { return m_main ? m_main->CloseReason() : std::string(); }
    // Links that are open at this moment, as "main service", "SCU", "OMU", "MU".
    std::vector<std::string> OpenLinks() const;
    std::string GatewayId() const { return m_main ? m_main->RemoteId() : std::string(); }
    std::uint16_t MuPort() const { return m_mu ? m_mu->Port() : static_cast<std::uint16_t>(0); }

private:
    bool Link(std::unique_ptr<PeerLink>& link, const char* linkId, int timeoutMs, std::string& error);
    PeerLink::Handler MakeHandler();
    void OnFrame(PeerLink& link, const Frame& frame);
    void Deliver(const Frame& frame);
    std::string OpenWait(FrameSpec& request);
    std::unique_ptr<Frame> CloseWait(const std::string& transaction, int timeoutMs);

    Endpoint m_gateway;
    Watcher m_watcher;
    Answerer m_answerer;
    DefaultAnswers m_answers;
    struct Wait {
        std::uint16_t responseType;
        std::unique_ptr<Frame> answer;  // null until it has come
    };
    std::mutex m_mutex;  // guards m_nextSeq and m_waits
    std::condition_variable m_answered;
    std::uint32_t m_nextSeq = 100;
    bool m_relink = false;
    // By transaction: a response in JSON carries no sequence number.
    std::map<std::string, Wait> m_waits;
    // Destroyed first, and with them the threads that use what stands above.
    std::unique_ptr<LinkListener> m_mu;
    std::unique_ptr<PeerLink> m_main;
    std::unique_ptr<PeerLink> m_scu;
    std::unique_ptr<PeerLink> m_omu;
};

}  // namespace gvxctl
