#include "gvx_common/link/gvx_connection_mgr.h"

#include "base/cbb_xml.h"
#include "base/fixed_text.h"
#include "base/log.h"
#include "base/net_interface.h"
#include "bp/dispatcher.h"
#include "bp/message_block_ptr.h"
#include "bp/net_factory.h"
#include "bp/registration.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/config/setting_table.h"
#include "nss/nss_msg.h"

#include <ace/Guard_T.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>

namespace {

constexpr std::size_t kPeerNameLength = 3;    // "SCU", "GVX"
constexpr std::size_t kPeerPrefixLength = 4;  // "SCU#", "GVX#"
constexpr unsigned short kAlarmControlSelf = GVX_INTERNAL_REQ_ALARM_CONTROL;

std::array<std::atomic<MainServiceObserver>, 3> g_mainServiceSteps{};  // by MainServiceStep

void TakeMainServiceStep(MainServiceStep step, const std::string& linkId) {
    if (const MainServiceObserver observer = g_mainServiceSteps[static_cast<std::size_t>(step)]; observer != nullptr) {
        observer(linkId);
    }
}

// The beginning of an opening: no alarm leaves ahead of what is announced in its scope.
class AlarmsBehind {
public:
    explicit AlarmsBehind(const std::string& linkId) : m_linkId(linkId) {
        TakeMainServiceStep(MainServiceStep::Opening, m_linkId);
    }
    ~AlarmsBehind() { TakeMainServiceStep(MainServiceStep::HeldAlarms, m_linkId); }
    AlarmsBehind(const AlarmsBehind&) = delete;
    AlarmsBehind& operator=(const AlarmsBehind&) = delete;

private:
    const std::string& m_linkId;
};

std::string NodeText(const std::string& id) {
    return id.size() > kPeerPrefixLength ? id.substr(kPeerPrefixLength) : std::string();
}

std::string PairedMULink(std::string scuLinkId) {
    return scuLinkId.replace(0, std::min(kPeerNameLength, scuLinkId.size()), "MU");
}

CGvxConnection MakeConnection(const std::string& linkId, int elementType, const std::string& ip, unsigned int port) {
    CGvxConnection connection;
    connection.SetConnected(true);
    connection.SetElementType(static_cast<std::uint32_t>(elementType));
    connection.SetLinkId(linkId);
    connection.SetElementIP(ip);
    connection.SetElementPort(port);
    return connection;
}

void BeginContent(CBB::CXml& xml) {
    xml.AddDeclaration("1.0", "UTF-8");
    xml.AddElem("Content");
    xml.IntoElem();
}

}  // namespace

CGvxConnectionMgr CGvxConnectionMgr::m_Instance;

CGvxConnectionMgr* CGvxConnectionMgr::Instance() {
    return &m_Instance;
}

CGvxConnectionMgr* GvxConnectionMgr() {
    return CGvxConnectionMgr::Instance();
}

int CGvxConnectionMgr::JudgeElementType(int /*iNetElementType*/, const std::string& strLinkID) {
    return BP::ElementTypeOf(strLinkID);
}

void CGvxConnectionMgr::OnLinkOpened(const std::string& /*strDevName*/, int iNetElementType,
                                     const std::string& strLinkID, const std::string& strIP, unsigned int unPort) {
    switch (JudgeElementType(iNetElementType, strLinkID)) {
        case kElementSCU:
            return OnSCULinkOpened(strLinkID, strIP, unPort);
        case kElementOMU:
            return OnOMULinkOpened(strLinkID, strIP, unPort);
        case kElementMU:
            return OnMULinkOpened(strLinkID, strIP, unPort);
        case kElementIMGU:
            return OnIMGULinkOpened(strLinkID, strIP, unPort);
        case kElementGVX:
            return OnGVXMainServiceLinkOpened(strLinkID, strIP, unPort);
        default:
            GVX_LOG_ERR("GVX link opened", "Can not identify[%d:%s].", iNetElementType, strLinkID.c_str());
    }
}

void CGvxConnectionMgr::OnLinkClosed(const std::string& /*strDevName*/, int iNetElementType,
                                     const std::string& strLinkID, const std::string& strIP, unsigned int unPort) {
    switch (JudgeElementType(iNetElementType, strLinkID)) {
        case kElementSCU:
            return OnSCULinkClosed(strLinkID, strIP, unPort);
        case kElementOMU:
            return OnOMULinkClosed(strLinkID, strIP, unPort);
        case kElementMU:
            return OnMULinkClosed(strLinkID, strIP, unPort);
        case kElementIMGU:
            return OnIMGULinkClosed(strLinkID, strIP, unPort);
        case kElementGVX:
            return OnGVXMainServiceLinkClosed(strLinkID, strIP, unPort);
        default:
            GVX_LOG_ERR("GVX link closed", "Can not identify[%d:%s]", iNetElementType, strLinkID.c_str());
    }
}

void CGvxConnectionMgr::OnSCULinkOpened(const std::string& linkId, const std::string& ip, unsigned int port) {
    {
        ACE_Guard<ACE_Recursive_Thread_Mutex> guard(SCUConnectionMutex);
        if (guard.locked()) {
            const bool isNew = m_SCUConnections.emplace(linkId, MakeConnection(linkId, kElementSCU, ip, port)).second;
            if (isNew) {
                GVX_LOG_INFO("GVX open link to SCU succeed: ", "GVX link id is %s, SCU link id is %s,%s:%u",
                             GvxConfigMgr()->GetGvxNetElementID().c_str(), linkId.c_str(), ip.c_str(), port);
            } else {
                GVX_LOG_INFO("GVX open link to SCU, the link existed: ", "The link ID is[%s], SCU:%s:%u",
                             linkId.c_str(), ip.c_str(), port);
            }
        }
    }
    SendQueryLinkPortToScu(linkId);
    ReportLinkEvent(linkId, NET_ELE_SCU_OPEN);
}

void CGvxConnectionMgr::OnSCULinkClosed(const std::string& linkId, const std::string& /*ip*/, unsigned int /*port*/) {
    {
        ACE_Guard<ACE_Recursive_Thread_Mutex> guard(SCUConnectionMutex);
        if (guard.locked()) {
            m_SCUConnections.erase(linkId);
        }
    }
    {
        const std::lock_guard<std::mutex> lock(m_connectionMutex);
        m_portQueries.erase(linkId);
    }
    ReportLinkEvent(linkId, NET_ELE_SCU_CLOSE);

    const std::string received = NodeText(linkId);
    const std::string local = NodeText(GvxConfigMgr()->GetGvxNetElementID());
    if (received == local) {
        GVX_LOG_WARN("SCU link closed", "The strRecvLinkID is: [%s], strLocolLinkID is:[%s].", received.c_str(),
                     local.c_str());
        // A media link that stands stays; one that has never come about is not tried for any more.
        ACE_Guard<ACE_Recursive_Thread_Mutex> guard(MUConnectionMutex);
        if (guard.locked() && m_MUConnections.count(PairedMULink(linkId)) == 0) {
            EndMuAttempt(PairedMULink(linkId));
        }
        return;
    }
    RemoveMULinkOfSCU(linkId);
}

void CGvxConnectionMgr::RemoveMULinkOfSCU(const std::string& scuLinkId) {
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(MUConnectionMutex);
    if (!guard.locked()) {
        return;
    }
    const std::string muLink = PairedMULink(scuLinkId);
    const auto found = m_MUConnections.find(muLink);
    if (found == m_MUConnections.end()) {
        GVX_LOG_WARN("SCU link closed", "The link ID is: [%s] .", muLink.c_str());
        EndMuAttempt(muLink);
        return;
    }
    const std::string ip = found->second.GetElementIP();
    const unsigned int port = found->second.GetElementPort();
    GVX_LOG_INFO("SCU link closed", "The link strIP: %s, uiMUServerPort: %u", ip.c_str(), port);
    BP::CNetFactory::DeleteClientLinkByAddr(ip.c_str(), static_cast<int>(port), kElementMU);
    m_MUConnections.erase(found);
    EndMuAttempt(muLink);
}

void CGvxConnectionMgr::OnMULinkOpened(const std::string& linkId, const std::string& ip, unsigned int port) {
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(MUConnectionMutex);
    if (!guard.locked()) {
        return;
    }
    const auto known = m_MUConnections.find(linkId);
    if (known != m_MUConnections.end()) {
        known->second.SetConnected(true);
        GVX_LOG_INFO("GVX open link to MU, the link existed: ", "The link ID is[%s]", linkId.c_str());
        return;
    }
    if (FindGivenUp(linkId, ip, port) != m_muGivenUp.end()) {
        GVX_LOG_INFO("GVX open link to MU", "The link ID[%s] has been given up meanwhile.", linkId.c_str());
        return;
    }
    if (m_MUConnections.size() >= kMaxMuRecords && !ForgetAClosedMu()) {
        GVX_LOG_ERR("GVX open link to MU failed.", "The link ID is[%s], %zu others are recorded.", linkId.c_str(),
                    kMaxMuRecords);
        return;
    }
    m_MUConnections.emplace(linkId, MakeConnection(linkId, kElementMU, ip, port));
    GVX_LOG_INFO("GVX open link to MU succeed: ", "The link ID is[%s], MU:%s:%u", linkId.c_str(), ip.c_str(), port);
}

// MUConnectionMutex is held. One whose link this side keeps is not forgotten.
bool CGvxConnectionMgr::ForgetAClosedMu() {
    const auto closed = std::find_if(m_MUConnections.begin(), m_MUConnections.end(), [this](const auto& entry) {
        return !entry.second.IsConnected() && m_muAttempts.count(entry.first) == 0;
    });
    if (closed == m_MUConnections.end()) {
        return false;
    }
    m_MUConnections.erase(closed);
    return true;
}

// The entry stays until the SCU's own link closes, so that a lost media link is re-established by the network layer
// alone and not opened a second time.
void CGvxConnectionMgr::OnMULinkClosed(const std::string& linkId, const std::string& /*ip*/, unsigned int /*port*/) {
    {
        ACE_Guard<ACE_Recursive_Thread_Mutex> guard(MUConnectionMutex);
        const auto known = guard.locked() ? m_MUConnections.find(linkId) : m_MUConnections.end();
        if (guard.locked() && known != m_MUConnections.end()) {
            known->second.SetConnected(false);
        }
    }
    ReportLinkEvent(linkId, NET_ELE_MU);
}

void CGvxConnectionMgr::NotifyConnectMU(std::string strLinkID, unsigned int iMUPort) {
    const std::string muLink = PairedMULink(strLinkID);
    GVX_LOG_INFO("GVX open link to MU", "SCU linkID[%s], MU linkID[%s], MU Port[%u]", strLinkID.c_str(), muLink.c_str(),
                 iMUPort);
    {
        ACE_Guard<ACE_Recursive_Thread_Mutex> guard(MUConnectionMutex);
        if (guard.locked() && m_MUConnections.count(muLink) != 0) {
            GVX_LOG_WARN("GVX open link to MU", "The link ID[%s] is already exsit.", muLink.c_str());
            return;
        }
    }
    const std::string ip = ScuAddress(strLinkID);
    const std::string id = GvxConfigMgr()->GetGvxNetElementID();
    // A leading part of the loopback address passes as well, the empty address with it.
    if (std::strncmp("127.0.0.1", ip.c_str(), ip.size()) == 0) {
        ConnectMU(id, strLinkID, ip, iMUPort, nullptr);
        return;
    }
    std::string local = gvx::SettingText(gvx::Setting::GVX_MESSAGE_IP);
    const int runMode = GvxConfigMgr()->GetRunMode();
    if (runMode == RunMode_CLOUD || runMode == RunMode_CLOUDEDGE) {
        local = InternalApiAddress();
    }
    ConnectMU(id, strLinkID, ip, iMUPort, local.c_str());
}

// Empty for an SCU without a link.
std::string CGvxConnectionMgr::ScuAddress(const std::string& scuLinkId) {
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(SCUConnectionMutex);
    const auto found = guard.locked() ? m_SCUConnections.find(scuLinkId) : m_SCUConnections.end();
    return guard.locked() && found != m_SCUConnections.end() ? found->second.GetElementIP() : std::string();
}

void CGvxConnectionMgr::ConnectMU(const std::string& ownId, const std::string& scuLinkId, const std::string& ip,
                                  unsigned int port, const char* localIp) {
    const std::string muLink = PairedMULink(scuLinkId);
    {
        ACE_Guard<ACE_Recursive_Thread_Mutex> guard(MUConnectionMutex);
        if (!guard.locked() || !BeginMuAttempt(ownId, muLink, ip, port, localIp)) {
            return;
        }
    }
    // The SCU's link may have closed meanwhile, and its close has then found no attempt to end.
    if (ScuAddress(scuLinkId) != ip) {
        ACE_Guard<ACE_Recursive_Thread_Mutex> guard(MUConnectionMutex);
        if (guard.locked() && m_MUConnections.count(muLink) == 0) {
            EndMuAttempt(muLink);
        }
    }
}

// MUConnectionMutex is held. True when the network layer keeps such a link from now on; a failure leaves no record.
bool CGvxConnectionMgr::BeginMuAttempt(const std::string& ownId, const std::string& muLink, const std::string& ip,
                                       unsigned int port, const char* localIp) {
    const auto known = m_muAttempts.find(muLink);
    if (known != m_muAttempts.end() && known->second.GetElementIP() == ip && known->second.GetElementPort() == port) {
        return true;
    }
    EndMuAttempt(muLink);
    if (m_muAttempts.size() >= kMaxMuAttempts) {
        GVX_LOG_ERR("GVX open link to MU failed.", "The link ID is[%s], %zu others are kept.", muLink.c_str(),
                    kMaxMuAttempts);
        return false;
    }
    const auto record = m_muAttempts.insert_or_assign(muLink, MakeConnection(muLink, kElementMU, ip, port)).first;
    if (BP::CNetFactory::CreateClientLink(ownId, kElementMU, ip.c_str(), static_cast<int>(port), localIp, true, 0) !=
        0) {
        GVX_LOG_ERR("GVX open link to MU failed.", "The link ID is[%s].", muLink.c_str());
        m_muAttempts.erase(record);
        return false;
    }
    if (const auto again = FindGivenUp(muLink, ip, port); again != m_muGivenUp.end()) {
        m_muGivenUp.erase(again);
    }
    return true;
}

// MUConnectionMutex is held. A media unit that comes by itself never has the address of an attempt, at which it
// listens.
CGvxConnectionMgr::GivenUpLinks::iterator CGvxConnectionMgr::FindGivenUp(const std::string& muLink,
                                                                         const std::string& ip, unsigned int port) {
    const auto [first, last] = m_muGivenUp.equal_range(muLink);
    const auto found = std::find_if(first, last, [&ip, port](const auto& entry) {
        return entry.second.GetElementIP() == ip && entry.second.GetElementPort() == port;
    });
    return found == last ? m_muGivenUp.end() : found;
}

// MUConnectionMutex is held. The link may have opened and its event wait still, which would record it for ever.
void CGvxConnectionMgr::EndMuAttempt(const std::string& muLink) {
    const auto known = m_muAttempts.find(muLink);
    if (known != m_muAttempts.end()) {
        BP::CNetFactory::DeleteClientLinkByAddr(known->second.GetElementIP().c_str(),
                                                static_cast<int>(known->second.GetElementPort()), kElementMU);
        if (m_muGivenUp.size() >= kMaxMuRecords) {
            m_muGivenUp.erase(m_muGivenUp.begin());
        }
        m_muGivenUp.insert(m_muAttempts.extract(known));
    }
}

std::string CGvxConnectionMgr::InternalApiAddress() {
    char address[16] = {};
    ZVS_GetIpByNetworkface("INTERNAL_API", address);
    return address;
}

void CGvxConnectionMgr::OnOMULinkOpened(const std::string& linkId, const std::string& ip, unsigned int port) {
    {
        const std::lock_guard<std::mutex> lock(m_connectionMutex);
        m_OMUConnection = MakeConnection(linkId, kElementOMU, ip, port);
        m_strOmuNetLinkID = linkId;
    }
    SendWaitingAlarms();
}

// The close of another unit's link than the recorded one leaves the record alone.
void CGvxConnectionMgr::OnOMULinkClosed(const std::string& linkId, const std::string& /*ip*/, unsigned int /*port*/) {
    const std::lock_guard<std::mutex> lock(m_connectionMutex);
    if (m_OMUConnection.GetLinkId() != linkId) {
        return;
    }
    m_OMUConnection.SetConnected(false);
    m_OMUConnection.SetLinkId(std::string());
}

void CGvxConnectionMgr::OnIMGULinkOpened(const std::string& linkId, const std::string& ip, unsigned int port) {
    GVX_LOG_INFO("GVX open link to IMGU", "The link ID is[%s], %s:%u", linkId.c_str(), ip.c_str(), port);
}

void CGvxConnectionMgr::OnIMGULinkClosed(const std::string& linkId, const std::string& /*ip*/, unsigned int /*port*/) {
    ReportLinkEvent(linkId, NET_ELE_IMGU);
}

// The record carries the operation unit's element code, not the main service's own; GetLinkInfoByType tells it.
void CGvxConnectionMgr::OnGVXMainServiceLinkOpened(const std::string& linkId, const std::string& ip,
                                                   unsigned int port) {
    {
        const AlarmsBehind alarms(linkId);
        CGvxConnection opened = MakeConnection(linkId, kElementOMU, ip, port);
        opened.SetProgress(BP::CDispatcher::ProgressOf(linkId));
        {
            const std::lock_guard<std::mutex> lock(m_connectionMutex);
            m_gvxMainServiceConnection = opened;
            m_mainServices.remove_if([&linkId](const CGvxConnection& other) { return other.GetLinkId() == linkId; });
            m_mainServices.push_back(m_gvxMainServiceConnection);
        }
        BP::CPluginMgr::RegisterPlugin();
    }
    // The list of ports waits for its answer, and what follows waits for the list.
    const auto lastSteps = [this, linkId] {
        TakeMainServiceStep(MainServiceStep::UsedPorts, linkId);
        FeedAlarmControl();
    };
    if (m_peerWaitRunner) {
        m_peerWaitRunner(lastSteps);
    } else {
        lastSteps();
    }
}

// Two commands to ourselves, which enter as if they had come from the main service: it has no way to ask for them.
void CGvxConnectionMgr::FeedAlarmControl() {
    BP::MessageBlockPtr msgBlock = BP::MakeMessageBlock(kNssHeaderBytes);
    GVX_CHECK_NULL_RETURN_VOID(msgBlock);
    // A bare head: whoever takes a command apart expects one.
    NssMsgHeader head{};
    head.usiProtocolVersion = kNssProtocolVersion;
    head.usiMsgType = kAlarmControlSelf;
    head.uiPacketLength = kNssHeaderBytes;
    NssSwapHeader(head);
    msgBlock->copy(reinterpret_cast<const char*>(&head), sizeof(head));
    for (const unsigned short type : {kAlarmControlSelf, static_cast<unsigned short>(NSS_ALARM_CONTRON_REQ)}) {
        ACE_Message_Block* handed = msgBlock.release();
        if (SendMsgIn(kElementGVX, "", type, "", handed) != 0) {
            GVX_LOG_ERR("GVX main service link opened", " mgr send msg in failed.");
            msgBlock.reset(handed);
            msgBlock.reset();
        }
    }
}

// The close of a link that is not the recorded one leaves the record alone. When the recorded one closes and another
// main service is linked, that one is recorded anew: it has had its opening already, and would hear nothing any more.
void CGvxConnectionMgr::OnGVXMainServiceLinkClosed(const std::string& linkId, const std::string& /*ip*/,
                                                   unsigned int /*port*/) {
    std::string follower;
    {
        const std::lock_guard<std::mutex> lock(m_connectionMutex);
        m_mainServices.remove_if([&linkId](const CGvxConnection& other) { return other.GetLinkId() == linkId; });
        if (m_gvxMainServiceConnection.GetLinkId() == linkId) {
            m_gvxMainServiceConnection.SetConnected(false);
            m_gvxMainServiceConnection.SetLinkId(std::string());
            if (!m_mainServices.empty()) {
                m_gvxMainServiceConnection = m_mainServices.back();
                follower = m_gvxMainServiceConnection.GetLinkId();
            }
        }
    }
    if (!follower.empty()) {
        GVX_LOG_WARN("GVX main service link closed", "The link ID is[%s], [%s] serves instead.", linkId.c_str(),
                     follower.c_str());
    }
    BP::CDeviceMgr::HandleClusterTaskShiftIn(0, std::string());
}

void CGvxConnectionMgr::ReportLinkEvent(const std::string& linkId, LINKCLOSE_NET_ELE_E event) {
    ADAPTER_COMMON_MESSAGE SdkParms{};
    if (!gvx::PutText(SdkParms.chNetEleLinkId, linkId)) {
        GVX_LOG_ERR("Report link event", "strncpy_s SdkParms.chNetEleLinkId failed!");
        return;
    }
    SdkParms.eLinkCloseNetEle = event;
    m_pException(SdkParms);
}

CGvxConnection CGvxConnectionMgr::MainServiceConnection() const {
    const std::lock_guard<std::mutex> lock(m_connectionMutex);
    return m_gvxMainServiceConnection;
}

std::string CGvxConnectionMgr::MainServiceLinkId() const {
    const std::lock_guard<std::mutex> lock(m_connectionMutex);
    return m_gvxMainServiceConnection.GetLinkId();
}

bool CGvxConnectionMgr::GetLinkInfoByType(BP::enSubsysType eSubsysType, unsigned int& uElementType,
                                          std::string& strLinkID) {
    const CGvxConnection connection = MainServiceConnection();
    if (!connection.IsConnected()) {
        GVX_LOG_ERR("Get link info", "Sub system type is [%d], not connect.", static_cast<int>(eSubsysType));
        return false;
    }
    uElementType = connection.GetElementType();
    strLinkID = connection.GetLinkId();
    return true;
}

std::string CGvxConnectionMgr::GetOmuLinkId() {
    const std::lock_guard<std::mutex> lock(m_connectionMutex);
    return m_strOmuNetLinkID;
}

std::string CGvxConnectionMgr::GetScuLinkId() {
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(SCUConnectionMutex);
    if (!guard.locked() || m_SCUConnections.empty()) {
        return std::string();
    }
    return m_SCUConnections.begin()->first;
}

void CGvxConnectionMgr::SetGvxService(BP::IService* pGvxService) {
    if (pGvxService == nullptr) {
        GVX_LOG_ERR_CODE("Set gvx service", ZVS_FAIL, "Input param invalid.");
        return;
    }
    if (m_pGvxService == nullptr) {
        m_pGvxService = pGvxService;
    }
}

void CGvxConnectionMgr::SetMainServiceObserver(MainServiceStep step, MainServiceObserver observer) {
    g_mainServiceSteps[static_cast<std::size_t>(step)] = observer;
}

void CGvxConnectionMgr::SetException(GvxExceptionCallback pException) {
    if (pException == nullptr) {
        GVX_LOG_ERR("Set exception callback", "Input param invalid.");
        return;
    }
    m_pException = pException;
}

void CGvxConnectionMgr::SendQueryLinkPortToScu(const std::string& linkId) {
    CBB::CXml xml;
    xml.AddDeclaration("1.0", "UTF-8");
    xml.AddElem("Content", "query");
    {
        // Ahead of the query, since the answer may be faster than this thread.
        const std::lock_guard<std::mutex> lock(m_connectionMutex);
        m_portQueries[linkId] = m_gvxMainServiceConnection.GetLinkId();
    }
    SendReqMsgWithXml(BP::SUBSYS_SCU, kElementSCU, NSS_NOTIFY_LINK_PORT_TO_GVX_REQ, xml, linkId, std::string());
    GVX_LOG_INFO("Query link port", "msg type[0x02D4][NSS_NOTIFY_LINK_PORT_TO_GVX_REQ]. linkID=%s", linkId.c_str());
}

bool CGvxConnectionMgr::TakeLinkPortAnswer(const std::string& fromLink, const std::string& scuLinkId) {
    const std::lock_guard<std::mutex> lock(m_connectionMutex);
    const auto query = m_portQueries.find(scuLinkId);
    if (query == m_portQueries.end() || query->second.empty() || query->second != fromLink) {
        return false;
    }
    m_portQueries.erase(query);
    return true;
}

bool CGvxConnectionMgr::OwnNodeText(std::string& ownId, std::string& nodeText) {
    ownId = GvxConfigMgr()->GetGvxNetElementID();
    if (ownId.size() < kPeerPrefixLength) {
        GVX_LOG_ERR_CODE("Own network element identifier", ZVS_BP_ERROR,
                         "substr start index[%d] > strGvxNetElementID.length[%d]", static_cast<int>(kPeerPrefixLength),
                         static_cast<int>(ownId.size()));
        return false;
    }
    nodeText = ownId.substr(kPeerPrefixLength);
    return true;
}

void CGvxConnectionMgr::SendQueryCGInfoToScu() {
    std::string id;
    std::string node;
    CBB::CXml xml;
    if (!OwnNodeText(id, node)) {
        return;
    }
    BeginContent(xml);
    xml.AddElem("ClusterHeader");
    xml.IntoElem();
    xml.AddElem("MsyType", "");
    xml.AddElem("SrcNodeID", node.c_str());
    xml.AddElem("SrcContainerType", "");
    xml.AddElem("DstNodeID", node.c_str());
    xml.AddElem("DstContainerType", "");
    SendReqMsgWithXml(BP::SUBSYS_SCU, kElementSCU, NSS_QUERY_GVX_TYPE_REQ, xml, id.replace(0, 3, "SCU"), std::string());
}

void CGvxConnectionMgr::SendGet35114SevCfgParamReqToOMU() {
    std::string id;
    std::string node;
    CBB::CXml xml;
    if (!OwnNodeText(id, node)) {
        return;
    }
    BeginContent(xml);
    xml.AddElem("NodeCode", node.c_str());
    xml.AddElem("ConfigType", "GB35114_CFG");
    SendReqMsgWithXml(BP::SUBSYS_OMU, kElementOMU, NSS_GET_GB35114_CONF_REQ, xml, GetOmuLinkId(), std::string());
}
