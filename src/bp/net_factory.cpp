#include "bp/net_factory.h"

#include "base/log.h"
#include "bp/frame_reader.h"
#include "bp/link_engine.h"
#include "bp/published.h"
#include "bp/registration.h"

#include <cerrno>
#include <mutex>
#include <utility>

namespace BP {

namespace {

constexpr unsigned int kDefaultConnectTimeoutMs = 5000;

struct Factory {
    std::mutex startStop;  // One start or stop at a time; never taken on the I/O thread.
    Published<LinkEngine> engine;
};

// Never destroyed: reactors serve, and hence send, until late in the end of the process.
Factory& TheFactory() {
    static Factory& factory = *new Factory;
    return factory;
}

}  // namespace

int CNetFactory::Start(const LinkOptions& options, LinkEvents events) {
    if (!IsLinkIdentifier(options.localID)) {
        GVX_LOG_ERR_CODE("Link engine", ZVS_PARA_INVALID, "[%s] is no link identifier", options.localID.c_str());
        return ZVS_PARA_INVALID;
    }
    if (OnLinkThread()) {
        return ZVS_FAIL;
    }
    Factory& factory = TheFactory();
    std::lock_guard<std::mutex> guard(factory.startStop);
    if (factory.engine.Get() != nullptr) {
        GVX_LOG_ERR("Link engine", "The links are started already.");
        return ZVS_FAIL;
    }
    auto engine = std::make_shared<LinkEngine>(options, std::move(events));
    const int result = engine->Start();
    if (result == ZVS_SUCCEED) {
        factory.engine.Exchange(std::move(engine));
    }
    return result;
}

// The engine stays reachable until its thread has ended, so that the close events may still ask it.
void CNetFactory::Stop() {
    if (OnLinkThread()) {
        GVX_LOG_ERR("Link engine", "The link thread cannot wait for its own end.");
        return;
    }
    Factory& factory = TheFactory();
    std::lock_guard<std::mutex> guard(factory.startStop);
    const std::shared_ptr<LinkEngine> engine = factory.engine.Get();
    if (engine != nullptr) {
        engine->Stop();
        factory.engine.Exchange(nullptr);
    }
}

int CNetFactory::Listen(const char* ip, std::uint16_t port, std::uint16_t* boundPort) {
    const std::shared_ptr<LinkEngine> engine = TheFactory().engine.Get();
    if (engine == nullptr) {
        GVX_LOG_ERR_CODE("Link listener", ZVS_NET_BIND_ERROR, "The links are not started.");
        errno = ESHUTDOWN;
        return ZVS_NET_BIND_ERROR;
    }
    return engine->Listen(ip, port, boundPort);
}

int CNetFactory::CreateClientLink(const std::string& id, int type, const char* peerIp, int peerPort,
                                  const char* localIp, bool retry, unsigned int connectTimeoutMs) {
    ConnectorOptions options;
    const bool anyLocal = localIp == nullptr || *localIp == '\0';
    if (!IsLinkIdentifier(id) || peerPort == 0 || !NetAddress::Parse(peerIp, peerPort, options.peer) ||
        (!anyLocal && !NetAddress::Parse(localIp, 0, options.local))) {
        GVX_LOG_ERR_CODE("Link connector", ZVS_PARA_INVALID, "id[%s] peer[%s:%d] local[%s]", id.c_str(),
                         peerIp != nullptr ? peerIp : "", peerPort, anyLocal ? "" : localIp);
        return ZVS_PARA_INVALID;
    }
    const std::shared_ptr<LinkEngine> engine = TheFactory().engine.Get();
    if (engine == nullptr) {
        GVX_LOG_ERR("Link connector", "The links are not started.");
        return ZVS_FAIL;
    }
    options.localID = id;
    options.retry = retry;
    options.connectTimeoutMs = static_cast<int>(connectTimeoutMs != 0 ? connectTimeoutMs : kDefaultConnectTimeoutMs);
    return engine->AddConnector(ConnectorKey{options.peer.ip, peerPort, type}, options);
}

int CNetFactory::DeleteClientLinkByAddr(const char* ip, int port, int type) {
    NetAddress peer;
    const std::shared_ptr<LinkEngine> engine = TheFactory().engine.Get();
    if (engine == nullptr || !NetAddress::Parse(ip, port, peer)) {
        return ZVS_FAIL;
    }
    return engine->RemoveConnector(ConnectorKey{peer.ip, port, type});
}

thread_local SendReceipt* SendReceipt::s_current = nullptr;

SendReceipt::SendReceipt(std::shared_ptr<const LinkProgress> only) : m_only(std::move(only)) {
    s_current = this;
}

SendReceipt::~SendReceipt() {
    s_current = nullptr;
}

bool SendReceipt::Allows(const std::shared_ptr<const LinkProgress>& connection) {
    return s_current == nullptr || s_current->m_only == nullptr || s_current->m_only == connection;
}

void SendReceipt::Note(const std::shared_ptr<const LinkProgress>& connection, std::uint64_t number) {
    if (s_current != nullptr) {
        s_current->m_taker = connection;
        s_current->m_number = number;
    }
}

int CNetFactory::Send(const std::string& linkID, ACE_Message_Block* block) {
    if (block == nullptr) {
        return ZVS_NULL_POINTER;
    }
    const std::shared_ptr<LinkEngine> engine = TheFactory().engine.Get();
    if (engine == nullptr) {
        return ZVS_NET_SEND_ERROR;
    }
    if (!IsWholeFrame(block) || block->total_length() > engine->Options().maxFrameBytes) {
        return ZVS_PARA_INVALID;
    }
    return engine->Send(linkID, block);
}

LinkRoom CNetFactory::RoomOf(const std::string& linkID) {
    const std::shared_ptr<LinkEngine> engine = TheFactory().engine.Get();
    return engine != nullptr ? engine->RoomOf(linkID) : LinkRoom::NoLink;
}

std::shared_ptr<const LinkProgress> CNetFactory::ProgressOf(const std::string& linkID) {
    const std::shared_ptr<LinkEngine> engine = TheFactory().engine.Get();
    return engine != nullptr ? engine->ProgressOf(linkID) : nullptr;
}

std::vector<LinkInfo> CNetFactory::Links() {
    LinkTotals ignored;
    return Links(ignored);
}

std::vector<LinkInfo> CNetFactory::Links(LinkTotals& totals) {
    const std::shared_ptr<LinkEngine> engine = TheFactory().engine.Get();
    return engine != nullptr ? engine->Links(totals) : std::vector<LinkInfo>();
}

bool CNetFactory::RunOnLinkThread(std::function<void()> work) {
    const std::shared_ptr<LinkEngine> engine = TheFactory().engine.Get();
    if (engine != nullptr) {
        engine->Post(std::move(work));
    }
    return engine != nullptr;
}

}  // namespace BP
