#include "gvx_common/ports/gvx_port_mgr.h"

#include "base/log.h"
#include "bp/cmd.h"
#include "bp/dispatcher.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "nss/nss_msg_header.h"
#include "nss/nss_msg_type.h"

#include <ace/Guard_T.h>
#include <ace/Message_Block.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Guard = ACE_Guard<ACE_Recursive_Thread_Mutex>;

constexpr unsigned int kServiceID = 1;
constexpr unsigned int kApplyBatch = 10;
constexpr unsigned int kApplyTimeoutSeconds = 5;
constexpr unsigned int kReportTimeoutSeconds = 0;  // the dispatcher's own limit
constexpr const char* kApplyTitle = "Apply port list";
constexpr const char* kReportTitle = "Report used ports";

PORT_PROCOTOL_TYPE TypeOf(const std::string& protocol) {
    if (protocol == UDP_PROCOTOL) {
        return UDP_PROCOTOL_PORT;
    }
    return protocol == TCP_PROCOTOL ? TCP_PROCOTOL_PORT : NULL_PROCOTOL_PORT;
}

std::string MainServiceLink() {
    unsigned int elementType = 0;
    std::string link;
    GvxConnectionMgr()->GetLinkInfoByType(BP::SUBSYS_GVX, elementType, link);
    return link;
}

// Null when no answer came.
std::unique_ptr<BP::CCmd> Ask(unsigned int msgType, const std::string& text, const std::string& link,
                              const std::string& trans, unsigned int timeoutSeconds) {
    return std::unique_ptr<BP::CCmd>(
        GvxConnectionMgr()->SyncSendReqMsg(kServiceID, kElementGVX, link.c_str(), trans, msgType, text.c_str(),
                                           static_cast<unsigned int>(text.size()), timeoutSeconds));
}

// The text behind the head of a whole frame. 0, or 1 with a log line.
int ReadReply(const ACE_Message_Block* block, PLUGIN_APPLY_PORT_RSP_DATA& data) {
    if (block == nullptr) {
        GVX_LOG_ERR(kApplyTitle, "the nssMsgBlock is null");
        return ZVS_FAIL;
    }
    if (block->length() <= kNssHeaderBytes) {
        GVX_LOG_ERR(kApplyTitle, "[NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ]the return Json data is NULL.");
        return ZVS_FAIL;
    }
    if (!gvx::ReadPortReply(block->rd_ptr() + kNssHeaderBytes, block->length() - kNssHeaderBytes, data)) {
        GVX_LOG_ERR(kApplyTitle, "parse json faild.");
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

void ReportAtOpening(const std::string& linkId) {
    if (const int result = CGvxPortMgr::Instance()->SendUsedPortlist(linkId); result != ZVS_SUCCEED) {
        GVX_LOG_ERR_CODE("Plugin SendUsedPortlist failed.", result, "The link ID is[%s].", linkId.c_str());
    }
}

[[maybe_unused]] const bool g_registered = [] {
    CGvxConnectionMgr::SetMainServiceObserver(MainServiceStep::UsedPorts, &ReportAtOpening);
    return true;
}();

int MakeProofSocket(const std::string& protocol) {
    return protocol == UDP_PROCOTOL ? ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)
                                    : ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
}

// Binds to the port for a moment, which proves that it is free at this instant.
bool ProveFree(std::uint32_t port, const std::string& protocol) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    const int fd = MakeProofSocket(protocol);
    if (fd < 0) {
        GVX_LOG_ERR("Make port. create socket failed.", "errorno is %d.", errno);
        return false;
    }
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        GVX_LOG_ERR("Make port. bind socket failed.", "errorno is %d.", errno);
        if (::close(fd) != 0) {
            GVX_LOG_ERR("Make port. bind failed and close socket failed.", "errorno is %d.", errno);
        }
        return false;
    }
    if (::close(fd) != 0) {
        GVX_LOG_ERR("Make port. bind success. but close socket failed.", "errorno is %d.", errno);
        return false;
    }
    return true;
}

}  // namespace

CGvxPortMgr CGvxPortMgr::m_Instance;

CGvxPortMgr* CGvxPortMgr::Instance() {
    return &m_Instance;
}

CGvxPortMgr* GvxPortMgr() {
    return CGvxPortMgr::Instance();
}

CGvxPortMgr::~CGvxPortMgr() {
    ClearPortElement();
}

bool CGvxPortMgr::Init() {
    const Guard guard(m_portElementMapMutex);
    if (m_bIsInited) {
        GVX_LOG_INFO("Port manager", "GVX port mgr init, Flag is true.");
        return true;
    }
    ClearPortElement();
    CPortElement* udp = new (std::nothrow) CUDPPortElement;
    CPortElement* tcp = new (std::nothrow) CTCPPortElement;
    g_bp_memstat += (udp != nullptr ? 1 : 0) + (tcp != nullptr ? 1 : 0);
    m_bIsInited = BindElements(udp, tcp);
    return m_bIsInited;
}

// Takes both over; deletes them when they cannot be bound.
bool CGvxPortMgr::BindElements(CPortElement* udp, CPortElement* tcp) {
    if (udp != nullptr && tcp != nullptr) {
        udp->Init();
        tcp->Init();
        if (m_portElementMap.emplace(GVX_MEDIA_SEND_UDP, udp).second &&
            m_portElementMap.emplace(GVX_MEDIA_SEND_TCP, tcp).second) {
            return true;
        }
        GVX_LOG_ERR("Port manager", "bind port element error.");
        m_portElementMap.clear();
    }
    g_bp_memstat -= (udp != nullptr ? 1 : 0) + (tcp != nullptr ? 1 : 0);
    delete udp;
    delete tcp;
    return false;
}

void CGvxPortMgr::UnInit() {
    const Guard guard(m_portElementMapMutex);
    ClearPortElement();
    m_bIsInited = false;
    const std::lock_guard<std::mutex> lock(m_mutexLate);
    m_lateUdpPorts.clear();
    m_lateTcpPorts.clear();
    m_told = nullptr;
}

void CGvxPortMgr::ClearPortElement() {
    const Guard guard(m_portElementMapMutex);
    for (const auto& entry : m_portElementMap) {
        delete entry.second;
        --g_bp_memstat;
    }
    m_portElementMap.clear();
}

CPortElement* CGvxPortMgr::FindElement(const std::string& strPortElement) {
    const auto found = m_portElementMap.find(strPortElement);
    return found == m_portElementMap.end() ? nullptr : found->second;
}

std::list<std::uint32_t> CGvxPortMgr::UsedPorts(const std::string& strPortElement) {
    CPortElement* const element = FindElement(strPortElement);
    return element == nullptr ? std::list<std::uint32_t>() : element->GetUsedPortlist();
}

int CGvxPortMgr::ApplyPortList(unsigned int applyPortNumber, const std::string& portType,
                               std::list<std::uint32_t>& portList) {
    const std::string text = gvx::WritePortRequest({applyPortNumber, TypeOf(portType)});
    if (text.empty()) {
        GVX_LOG_ERR(kApplyTitle, "[NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ]the request Json is null");
        return ZVS_FAIL;
    }
    const std::string link = MainServiceLink();
    const std::string trans = BP::CMKTransID::GenerateTransID();
    GVX_LOG(OM_LOG_DEBUG, kApplyTitle, "[NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ]gvxLinkID %s transID %s", link.c_str(),
            trans.c_str());
    const std::unique_ptr<BP::CCmd> cmdReturnData =
        Ask(NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ, text, link, trans, kApplyTimeoutSeconds);
    if (cmdReturnData == nullptr) {
        GVX_LOG_ERR(kApplyTitle, "[NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ]the cmdReturnData is null");
        return ZVS_FAIL;
    }
    PLUGIN_APPLY_PORT_RSP_DATA data;
    const int result = ReadReply(cmdReturnData->GetMsgBlock(), data);
    if (result == ZVS_SUCCEED) {
        portList = std::move(data.applyPortReturnList);
    }
    return result;
}

int CGvxPortMgr::SendUsedPortlist() {
    return ReportUsedPorts(MainServiceLink());
}

int CGvxPortMgr::SendUsedPortlist(const std::string& link) {
    std::shared_ptr<const BP::LinkProgress> connection = BP::CDispatcher::ProgressOf(link);
    {
        const Guard guard(m_portElementMapMutex);  // an application may be telling it just now
        if (IsTold(connection)) {
            return ZVS_SUCCEED;
        }
    }
    const int result = ReportUsedPorts(link);
    NoteTold(std::move(connection));
    return result;
}

bool CGvxPortMgr::IsTold(const std::shared_ptr<const BP::LinkProgress>& link) {
    const std::lock_guard<std::mutex> lock(m_mutexLate);
    return link != nullptr && link == m_told;
}

void CGvxPortMgr::NoteTold(std::shared_ptr<const BP::LinkProgress> link) {
    const std::lock_guard<std::mutex> lock(m_mutexLate);
    m_told.swap(link);
}

int CGvxPortMgr::ReportUsedPorts(const std::string& link) {
    PLUGIN_SEND_PORT_DATA data;
    {
        const Guard guard(m_portElementMapMutex);
        if (!guard.locked()) {
            return ZVS_FAIL;
        }
        data.tcpUsedPortlist = UsedPorts(GVX_MEDIA_SEND_TCP);
        data.udpUsedPortlist = UsedPorts(GVX_MEDIA_SEND_UDP);
    }
    const std::string text = gvx::WriteUsedPorts(data);
    if (text.empty()) {
        GVX_LOG_ERR(kReportTitle, "[NSS_PLUGIN_SEND_PORTLIST_DATA_REQ]the request Json is null");
        return ZVS_FAIL;
    }
    const std::string trans = BP::CMKTransID::GenerateTransID();
    GVX_LOG(OM_LOG_DEBUG, kReportTitle, "[NSS_PLUGIN_SEND_PORTLIST_DATA_REQ]gvxLinkID %s transID %s", link.c_str(),
            trans.c_str());
    const std::unique_ptr<BP::CCmd> cmdReturnData =
        Ask(NSS_PLUGIN_SEND_PORTLIST_DATA_REQ, text, link, trans, kReportTimeoutSeconds);
    if (cmdReturnData == nullptr) {
        GVX_LOG_ERR(kReportTitle, "[NSS_PLUGIN_SEND_PORTLIST_DATA_REQ]the cmdReturnData is null");
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

void CGvxPortMgr::TakeLateReply(const ACE_Message_Block* block) {
    PLUGIN_APPLY_PORT_RSP_DATA data;
    if (ReadReply(block, data) != ZVS_SUCCEED || data.applyPortReturnType == NULL_PROCOTOL_PORT) {
        GVX_LOG_WARN(kApplyTitle, "A late answer names no ports of a known type.");
        return;
    }
    GVX_LOG_INFO(kApplyTitle, "%zu ports of type %d come late.", data.applyPortReturnList.size(),
                 static_cast<int>(data.applyPortReturnType));
    const std::lock_guard<std::mutex> lock(m_mutexLate);
    std::set<std::uint32_t>& late = data.applyPortReturnType == UDP_PROCOTOL_PORT ? m_lateUdpPorts : m_lateTcpPorts;
    late.insert(data.applyPortReturnList.begin(), data.applyPortReturnList.end());
}

std::list<std::uint32_t> CGvxPortMgr::TakeLatePorts(PORT_PROCOTOL_TYPE type) {
    std::set<std::uint32_t> taken;
    if (type != NULL_PROCOTOL_PORT) {
        const std::lock_guard<std::mutex> lock(m_mutexLate);
        taken.swap(type == UDP_PROCOTOL_PORT ? m_lateUdpPorts : m_lateTcpPorts);
    }
    return std::list<std::uint32_t>(taken.begin(), taken.end());
}

// By the connection and not by its name, which a main service keeps that has come anew.
void CGvxPortMgr::ReportAheadOfAsking() {
    const std::string link = GvxConnectionMgr()->MainServiceLinkId();
    std::shared_ptr<const BP::LinkProgress> connection = BP::CDispatcher::ProgressOf(link);
    if (connection != nullptr && !IsTold(connection) && ReportUsedPorts(link) == ZVS_SUCCEED) {
        NoteTold(std::move(connection));
    }
}

// A reply may name ports that this pool has handed out already: they stay with whoever holds them.
void CGvxPortMgr::FillPool(CPortElement& element, const std::string& strProtocol) {
    std::list<std::uint32_t> ports = TakeLatePorts(TypeOf(strProtocol));
    const std::list<std::uint32_t> held = element.GetUsedPortlist();
    const std::set<std::uint32_t> used(held.begin(), held.end());
    const auto isUsed = [&used](std::uint32_t port) { return used.count(port) != 0; };
    ports.remove_if(isUsed);
    if (ports.empty()) {
        GVX_LOG_INFO("Make port", "start apply port.");
        ReportAheadOfAsking();
        ApplyPortList(kApplyBatch, strProtocol, ports);
        ports.remove_if(isUsed);
    }
    element.UpdatePort(ports, false);
}

int CGvxPortMgr::MakePort(const std::string& strPortElement, unsigned int& uiAssginedPort,
                          const std::string& strProtocol) {
    const Guard guard(m_portElementMapMutex);
    uiAssginedPort = 0;
    CPortElement* const element = FindElement(strPortElement);
    if (element == nullptr) {
        GVX_LOG_ERR("Gvx port find port error.", "PortElement[%s] Protocol[%s]", strPortElement.c_str(),
                    strProtocol.c_str());
        return 0;
    }
    if (element->PortIsEmpty()) {
        FillPool(*element, strProtocol);
    }
    std::list<std::uint32_t> listFreePort;
    while (element->AssignPort(uiAssginedPort) && !ProveFree(uiAssginedPort, strProtocol)) {
        listFreePort.push_back(uiAssginedPort);
        uiAssginedPort = 0;
    }
    // Not before the end: a port that proved taken would be tried for ever.
    for (std::uint32_t taken : listFreePort) {
        FreePort(strPortElement, taken);
    }
    GVX_LOG_INFO("Make port", "CPortElement::AssignPort[%s],[%u] ports left.", strPortElement.c_str(),
                 static_cast<unsigned int>(element->getPortListSize()));
    if (uiAssginedPort == 0) {
        GVX_LOG_ERR("Make port", "Failed to assign port [%d].", static_cast<int>(uiAssginedPort));
        return 0;
    }
    return 1;
}

gvx::PoolPort CGvxPortMgr::TakePort(const std::string& strPortElement, const std::string& strProtocol) {
    unsigned int port = 0;
    if (MakePort(strPortElement, port, strProtocol) == 0) {
        return {};
    }
    // By the end of the record the pools may have been made anew, and know nothing of the port.
    return gvx::PoolPort(port, [strPortElement](unsigned int taken) {
        if (Instance()->IsPortUsed(strPortElement, taken)) {
            Instance()->FreePort(strPortElement, taken);
        }
    });
}

int CGvxPortMgr::FreePort(const std::string& strPortElement, unsigned int& uiAssginedPort) {
    const Guard guard(m_portElementMapMutex);
    const unsigned int port = uiAssginedPort;
    CPortElement* const element = FindElement(strPortElement);
    if (element == nullptr) {
        GVX_LOG_ERR("Gvx port mgr try to free port.", "Release port[%u]", port);
        return 0;
    }
    const bool released = element->FreePort(uiAssginedPort);
    GVX_LOG_INFO("Free port", "CPortElement::FreePort[%s],[%u] ports left.", strPortElement.c_str(),
                 static_cast<unsigned int>(element->getPortListSize()));
    if (!released) {
        GVX_LOG_ERR("Free port", "Failed to release port[%u]", port);
        return 0;
    }
    GVX_LOG_INFO("Free port", "Success to release port[%u]", port);
    return 1;
}

bool CGvxPortMgr::IsPortUsed(const std::string& strPortElement, unsigned int uiPort) {
    const Guard guard(m_portElementMapMutex);
    const std::list<std::uint32_t> used = UsedPorts(strPortElement);
    return std::find(used.begin(), used.end(), uiPort) != used.end();
}
