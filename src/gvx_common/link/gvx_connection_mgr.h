#pragma once

#include "bp/cmd.h"
#include "bp/service.h"
#include "gvx_common/link/gvx_connection.h"
#include "gvx_common/records/adapter_common_message.h"
#include "gvx_common/records/config_records.h"
#include "gvx_common/records/gvx_alarm_records.h"
#include "nss/nss_msg_type.h"

#include <ace/Recursive_Thread_Mutex.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace CBB {
class CXml;
}
namespace Json {
class Value;
}
class ACE_Message_Block;
enum _PU_DEV_FORM_TYPE : int;

// Element codes of the platform's peers.
constexpr int kElementSCU = 10105;
constexpr int kElementOMU = 60105;
constexpr int kElementMU = 30105;
constexpr int kElementIMGU = 240105;
constexpr int kElementGVX = 40105;
constexpr int kElementUnknown = 80105;

// The way to the device layer: called for link events, outside every lock of this class.
using GvxExceptionCallback = void (*)(ADAPTER_COMMON_MESSAGE&);

// Steps of the opening of the main-service link that rooms above this one take: ahead of the plug-ins' announcement,
// and in this order behind it. HeldAlarms follows upon Opening whatever fails between them.
enum class MainServiceStep { Opening, HeldAlarms, UsedPorts };
using MainServiceObserver = void (*)(const std::string& linkId);
// Does work of a link event that may wait for the peer's answer, so that it holds up the events of other links not.
using PeerWaitRunner = std::function<void(std::function<void()> work)>;

// What became of a send: number is the sequence number of what was sent, else why it was not.
struct SendOutcome {
    bool sent;
    int number;
    bool noMemory = false;  // why it was not sent
};

// The process-wide record of the platform peers that this gateway is linked to, and all sending to them. Every
// outbound message leaves by the main-service link, whatever link its caller names; SyncSendReqMsg alone uses the
// caller's.
//
// Link events come from one thread, which is not the network layer's I/O thread; what waits for a peer's answer is
// given to the runner of such work. Sends come from every reactor thread. Lock order: SCUConnectionMutex and
// MUConnectionMutex are never held together, and neither is held across a callback or a call into the network layer,
// making and deletion of a client link excepted.
class CGvxConnectionMgr {
public:
    static CGvxConnectionMgr* Instance();

    // A link has opened or closed. The peer is known by the text of its link identifier.
    void OnLinkOpened(const std::string& strDevName, int iNetElementType, const std::string& strLinkID,
                      const std::string& strIP, unsigned int unPort);
    void OnLinkClosed(const std::string& strDevName, int iNetElementType, const std::string& strLinkID,
                      const std::string& strIP, unsigned int unPort);

    // Element code of a link identifier. The first argument is not looked at.
    int JudgeElementType(int iNetElementType, const std::string& strLinkID);

    // Whether an answer to SendQueryLinkPortToScu about that SCU may be believed: it came by the link by which the
    // query has left, and is the first one. Any thread.
    bool TakeLinkPortAnswer(const std::string& fromLink, const std::string& scuLinkId);

    // Opens the link to the media unit that is paired with an SCU, at the SCU's address and that port. A pair whose
    // media link is still known is left as it is; one that is only tried for is given up for another port. At most
    // kMaxMuAttempts are made; each ends with its SCU's link, unless its media link is there by then and the SCU is
    // that of the own node.
    static constexpr std::size_t kMaxMuAttempts = 64;
    // So many media units are recorded. Beyond it one whose link has closed, and that has come by itself, is forgotten
    // for the next; when there is none, the next is not recorded.
    static constexpr std::size_t kMaxMuRecords = 1024;
    void NotifyConnectMU(std::string strLinkID, unsigned int iMUPort);

    // The main-service link, whatever the type. False, and a log line, when it is down.
    bool GetLinkInfoByType(BP::enSubsysType eSubsysType, unsigned int& uElementType, std::string& strLinkID);

    std::string GetOmuLinkId();             // keeps the last one after the link has closed
    std::string MainServiceLinkId() const;  // empty while it is down; writes no line
    CGvxConnection MainServiceConnection() const;
    std::string GetScuLinkId();  // the first SCU link; empty when there is none

    // Whose service id requests carry. The first non-null pointer sticks; it is not owned.
    void SetGvxService(BP::IService* pGvxService);
    // Must be set before the first link event. A later non-null value replaces the earlier one.
    void SetException(GvxExceptionCallback pException);

    // Who takes a step; set when the library is loaded, by the rooms above this one. Runs on the thread of the link
    // events, outside every lock of this class.
    static void SetMainServiceObserver(MainServiceStep step, MainServiceObserver observer);
    // Without one, as at first, such work is done at once. Set while no link is open.
    void SetPeerWaitRunner(PeerWaitRunner runner) { m_peerWaitRunner = std::move(runner); }

    void SendQueryCGInfoToScu();
    void SendGet35114SevCfgParamReqToOMU();
    void SendQueryLinkPortToScu(const std::string& linkId);

    // Requests. The result is the sequence number, or 1, 2 (no service set) or ZVS_ALLOC_MEMORY_ERROR: a sequence
    // number can equal a failure value, which SendStruct and the like below tell apart.
    unsigned int SendReqMsgWithXml(BP::enSubsysType eSubsysType, unsigned int uiNetEleType, enNssMsgType uiMsgType,
                                   CBB::CXml& XmlReq, std::string strSCULinkID, std::string strTransID);
    unsigned int SendReqMsgWithStruct(BP::enSubsysType eSubsysType, unsigned int uiNetEleType, enNssMsgType uiMsgType,
                                      const char* pMsgBody, unsigned int iMsgBodyLen, std::string strSCULinkID);
    SendOutcome SendStruct(BP::enSubsysType subsystem, unsigned int elementType, enNssMsgType msgType, const char* body,
                           unsigned int bodyLength, const std::string& link);
    // 0, or 1, or ZVS_ALLOC_MEMORY_ERROR. An empty transaction is generated.
    int SendRetMsgWithJson(unsigned short msgType, const std::string& jsonMsg, int netElemType, std::string linkID,
                           const std::string& transactionID);

    // Responses to a command, which stays the caller's. Failures are logged and not retried. One that finds no memory
    // throws std::bad_alloc, and one that makes no frame std::length_error: the work is refused then.
    void SendRespMsgWithXml(BP::CCmd* pCmd, CBB::CXml* pXmlResp, unsigned int uiRspCode, bool bWithTransaction);
    void SendRespMsgWithStruct(BP::CCmd* pCmd, const char* pMsgBody, unsigned int iMsgBodyLen, unsigned int uiRspCode);
    void SendRespMsgWithJson(BP::CCmd* pCmd, const Json::Value& value, unsigned int uiRspCode);

    // Feeds a message in as if it had come from the network. 0 or 1. The dispatcher owns the block after a success.
    int SendMsgIn(int iNetElemType, const char* pszNetLinkID, unsigned short usiMsgType, const char* pszTransID,
                  ACE_Message_Block*& pMsgBlock);

    // The last mile of every outbound message: by the main-service link, without a transaction when uiServiceID
    // is 0. 0 or 1; for NSS_ALARM_REPORT_REQ the dispatcher's own result. After a failure the block stays the
    // caller's.
    int SendMsgOut(unsigned int iNetElemType, const char* link, const char* pszTransID, unsigned int uiReqID,
                   ACE_Message_Block*& pMsgBlock, unsigned int uiServiceID, bool bCompress);

    // Sends by the caller's link and waits at most uiTimeout seconds (0: the dispatcher's own limit) for the answer,
    // which the caller owns; null on failure. Not on the link I/O thread.
    BP::CCmd* SyncSendReqMsg(unsigned int uiServiceID, int iNetElemType, const char* pszNetLinkID,
                             const std::string& transID, unsigned int msgType, const char* pMsgBody,
                             unsigned int iMsgBodyLen, unsigned int uiTimeout);

    // Alarms. Any thread; nothing is retried. Before the cloud side has taken the gateway over (CCloudConfigMgr) each
    // of these only writes a warning, the alarm is lost and the result is 1. docs/alarms.md tells who gets what.

    // A device's alarm to the SCU of its recorder code. The sequence number; 2 without a service, 1 for another
    // failure. bAction and uiOccurNumber of the report are turned to network order: it must not be sent twice.
    int SendDevAlarmReqMsgToSCU(ZVS_ALARM_REPORT& report) { return SendDeviceAlarm(report).number; }
    SendOutcome SendDeviceAlarm(ZVS_ALARM_REPORT& report);
    // The report of the same alarm to the cloud platform, where its type is in the alarm dictionary. Numbers of the
    // report are not looked at. The sequence number, or 1, 2, ZVS_ALLOC_MEMORY_ERROR; 1 for a type that is not in it.
    int sendGVXDeviceAlarmReportToKSP(const ZVS_ALARM_REPORT& report, const _PU_DEV_FORM_TYPE& form) {
        return ReportDeviceAlarm(report, form).number;
    }
    SendOutcome ReportDeviceAlarm(const ZVS_ALARM_REPORT& report, _PU_DEV_FORM_TYPE form);

    // An alarm of the gateway itself. Until the link to OMU has opened for the first time it waits in memory, with as
    // many others as gvx::AlarmOutbox says. A text that is too long drops it with a log line: type 63 characters,
    // inType 3, location and description 255.
    void SetGvxAlarmRepMsg(const std::string& type, const std::string& inType, const std::string& location,
                           const std::string& description);
    // Whether such an alarm may go on its way; false has written why. A code of an external server in description
    // becomes its text.
    static bool AdmitAlarm(const std::string& type, const std::string& inType, const std::string& location,
                           std::string& description);
    // A whole alarm of the gateway to OMU, iAlarmEventID in network order. 0 or 1; the flags have no effect.
    int SendGvxAlarmReqMsgToOMU(_ZVS_GVX_DEV_ALARM_REPORT& report, bool, bool) {
        return ReportToOmu(report).sent ? 0 : 1;
    }
    SendOutcome ReportToOmu(const _ZVS_GVX_DEV_ALARM_REPORT& report);
    // Its report to the cloud platform; result as for a device's alarm.
    int sendGVXAlarmReportToKSP(const _ZVS_GVX_DEV_ALARM_REPORT& report) { return ReportGatewayAlarm(report).number; }
    SendOutcome ReportGatewayAlarm(const _ZVS_GVX_DEV_ALARM_REPORT& report);

private:
    using NetConnectionMap = std::map<std::string, CGvxConnection>;
    using GivenUpLinks = std::multimap<std::string, CGvxConnection>;

    CGvxConnectionMgr() = default;

    void OnSCULinkOpened(const std::string& linkId, const std::string& ip, unsigned int port);
    void OnSCULinkClosed(const std::string& linkId, const std::string& ip, unsigned int port);
    void OnOMULinkOpened(const std::string& linkId, const std::string& ip, unsigned int port);
    void OnOMULinkClosed(const std::string& linkId, const std::string& ip, unsigned int port);
    void OnMULinkOpened(const std::string& linkId, const std::string& ip, unsigned int port);
    void OnMULinkClosed(const std::string& linkId, const std::string& ip, unsigned int port);
    void OnIMGULinkOpened(const std::string& linkId, const std::string& ip, unsigned int port);
    void OnIMGULinkClosed(const std::string& linkId, const std::string& ip, unsigned int port);
    void OnGVXMainServiceLinkOpened(const std::string& linkId, const std::string& ip, unsigned int port);
    void OnGVXMainServiceLinkClosed(const std::string& linkId, const std::string& ip, unsigned int port);

    void ReportLinkEvent(const std::string& linkId, LINKCLOSE_NET_ELE_E event);
    void RemoveMULinkOfSCU(const std::string& scuLinkId);
    bool ForgetAClosedMu();
    std::string ScuAddress(const std::string& scuLinkId);
    bool BeginMuAttempt(const std::string& ownId, const std::string& muLink, const std::string& ip, unsigned int port,
                        const char* localIp);
    void EndMuAttempt(const std::string& muLink);
    GivenUpLinks::iterator FindGivenUp(const std::string& muLink, const std::string& ip, unsigned int port);
    void ConnectMU(const std::string& ownId, const std::string& scuLinkId, const std::string& ip, unsigned int port,
                   const char* localIp);
    static std::string InternalApiAddress();
    void FeedAlarmControl();
    void SendWaitingAlarms();
    SendOutcome SendAlarmReportToKSP(const GVX_DEVICE_ALARM_REPORT_INFO& info);
    // False, with a warning, before the cloud side has taken the gateway over.
    static bool AlarmsMayLeave();
    // The gateway's own identifier and its text behind "GVX#"; false, with an error line, when it is too short.
    static bool OwnNodeText(std::string& ownId, std::string& nodeText);

    static CGvxConnectionMgr m_Instance;

    GvxExceptionCallback m_pException = nullptr;
    ACE_Recursive_Thread_Mutex SCUConnectionMutex;  // guards m_SCUConnections
    ACE_Recursive_Thread_Mutex MUConnectionMutex;   // guards m_MUConnections, m_muAttempts and m_muGivenUp
    // Guards m_OMUConnection, m_gvxMainServiceConnection, m_mainServices, m_portQueries and m_strOmuNetLinkID, which
    // link events write and senders read. Innermost: nothing is called while it is held.
    mutable std::mutex m_connectionMutex;
    CGvxConnection m_OMUConnection;
    NetConnectionMap m_SCUConnections;
    NetConnectionMap m_MUConnections;
    NetConnectionMap m_muAttempts;  // links to media units that the network layer keeps. Guarded by MUConnectionMutex.
    // Of these, those that it was told to drop: one may have opened just then. Guarded by MUConnectionMutex.
    GivenUpLinks m_muGivenUp;
    CGvxConnection m_gvxMainServiceConnection;
    std::list<CGvxConnection> m_mainServices;          // all that are linked, the last opened last
    std::map<std::string, std::string> m_portQueries;  // SCU to the link that was asked about it
    PeerWaitRunner m_peerWaitRunner;
    BP::IService* m_pGvxService = nullptr;  // not owned
    std::string m_strOmuNetLinkID;
};

CGvxConnectionMgr* GvxConnectionMgr();
