#include "gvx_common/link/gvx_connection_mgr.h"

#include "base/fixed_text.h"
#include "base/log.h"
#include "bp/message_block_ptr.h"
#include "gvx_common/alarm/emergency_protection.h"
#include "gvx_common/alarm/gvx_alarm_dictionary.h"
#include "gvx_common/config/cloud_config_mgr.h"
#include "gvx_common/link/gvx_connection_send.h"
#include "gvx_common/utility/gvx_utility.h"

#include <cstddef>
#include <cstring>
#include <utility>

// Alarms to SCU and OMU. The report to the cloud platform stands in gvx_connection_mgr_alarm_ksp.cpp.

namespace {

constexpr unsigned int kNoServicePointer = 2;
constexpr const char* kBuildTitle = "Build alarm message";
constexpr const char* kWaitTitle = "Set gvx alarm";
constexpr const char* kServersFailOn = "ALARM_GVX_CONNECT_THIRD_PARTY_SERVERS_FAIL_ON";
constexpr const char* kServersFailOff = "ALARM_GVX_CONNECT_THIRD_PARTY_SERVERS_FAIL_OFF";

// Head, and the tag and length of the two pairs.
constexpr std::size_t kAlarmFrameExtraBytes =
    kNssHeaderBytes + offsetof(_ZVS_ALARM_REPORT_DEC, cAlarmDesc) + offsetof(_ZVS_ALARM_REPORT_EXT, cExtParam);
static_assert(kAlarmFrameExtraBytes == 128, "what a frame has beyond body and texts");

template <std::size_t N>
bool Put(const char* title, char (&field)[N], std::string_view text, const char* message) {
    if (!gvx::PutText(field, text)) {
        GVX_LOG_ERR(title, "%s", message);
        return false;
    }
    return true;
}

// The parts of an alarm's frame.
struct AlarmFrame {
    unsigned int msgType;
    const char* body;
    std::size_t bodyBytes;
    const char* description;
    std::size_t descriptionBytes;
    const char* extension;
    std::size_t extensionBytes;
};

bool AppendDescription(ACE_Message_Block& block, const AlarmFrame& frame) {
    _ZVS_ALARM_REPORT_DEC stAlarmDesc{};
    stAlarmDesc.uiAlarmDescType = htons(NSS_TAG_ALARM_DESC);
    stAlarmDesc.uiAlarmDescLen = htonl(static_cast<std::uint32_t>(frame.descriptionBytes));
    return Put(kBuildTitle, stAlarmDesc.cAlarmDesc, {frame.description, frame.descriptionBytes},
               "strncpy_s stAlarmDesc.cAlarmDesc failed!") &&
           block.copy(reinterpret_cast<const char*>(&stAlarmDesc),
                      offsetof(_ZVS_ALARM_REPORT_DEC, cAlarmDesc) + frame.descriptionBytes) == 0;
}

bool AppendExtension(ACE_Message_Block& block, const AlarmFrame& frame) {
    _ZVS_ALARM_REPORT_EXT stAlarmExt{};
    stAlarmExt.uiAlarmExtType = htons(NSS_TAG_EXT_PARAM);
    stAlarmExt.uiAlarmExtLen = htonl(static_cast<std::uint32_t>(frame.extensionBytes));
    return Put(kBuildTitle, stAlarmExt.cExtParam, {frame.extension, frame.extensionBytes},
               "strncpy_s stAlarmExt.cExtParam failed!") &&
           block.copy(reinterpret_cast<const char*>(&stAlarmExt),
                      offsetof(_ZVS_ALARM_REPORT_EXT, cExtParam) + frame.extensionBytes) == 0;
}

bool AppendHead(ACE_Message_Block& block, const AlarmFrame& frame, unsigned int seq, const std::string& trans) {
    NssMsgHeader aMsgHeader{};
    gvx::FillRequestHead(aMsgHeader, frame.msgType, seq, block.size() - kNssHeaderBytes);
    return Put(kBuildTitle, aMsgHeader.szTransactionNo, trans, "strncpy_s aMsgHeader.szTransactionNo failed!") &&
           block.copy(reinterpret_cast<const char*>(&aMsgHeader), kNssHeaderBytes) == 0;
}

// The whole frame; null, with a log line, when it cannot be made, and outcome then tells of memory.
BP::MessageBlockPtr MakeAlarmFrame(const AlarmFrame& frame, unsigned int seq, const std::string& trans,
                                   SendOutcome& outcome) {
    BP::MessageBlockPtr pMsgBlock =
        BP::MakeMessageBlock(frame.bodyBytes + frame.descriptionBytes + frame.extensionBytes + kAlarmFrameExtraBytes);
    if (pMsgBlock == nullptr) {
        GVX_LOG_ERR("Point pMsgBlock is null.", "Make sure there is something wrong");
        outcome.noMemory = true;
        return pMsgBlock;
    }
    if (!AppendHead(*pMsgBlock, frame, seq, trans) || pMsgBlock->copy(frame.body, frame.bodyBytes) != 0 ||
        !AppendDescription(*pMsgBlock, frame) || !AppendExtension(*pMsgBlock, frame)) {
        pMsgBlock.reset();
    }
    return pMsgBlock;
}

}  // namespace

bool CGvxConnectionMgr::AlarmsMayLeave() {
    if (CCloudConfigMgr::Instance()->GetCloudConfigInited()) {
        return true;
    }
    GVX_LOG_WARN("Alarm delivery", "Cloud config inited is false, no need to send alarm");
    return false;
}

bool CGvxConnectionMgr::AdmitAlarm(const std::string& type, const std::string& inType, const std::string& location,
                                   std::string& description) {
    ZVS_REPORT_LIST stGvxAlarmReport{};
    if (!AlarmsMayLeave() || !Put(kWaitTitle, stGvxAlarmReport.cAlarmType, type, "snprintf_s cAlarmType failed") ||
        !Put(kWaitTitle, stGvxAlarmReport.cAlarmInType, inType, "snprintf_s cAlarmInType failed") ||
        !Put(kWaitTitle, stGvxAlarmReport.cLocationInfo, location,
             "strncpy_s stGvxAlarmReport.cLocationInfo failed!")) {
        return false;
    }
    if (type == kServersFailOn || type == kServersFailOff) {
        getGB35114AlarmDesc(std::string(description), description);
    }
    return Put(kWaitTitle, stGvxAlarmReport.cAlarmDesc, description, "snprintf_s cAlarmDesc failed");
}

void CGvxConnectionMgr::SetGvxAlarmRepMsg(const std::string& type, const std::string& inType,
                                          const std::string& location, const std::string& description) {
    CEmergencyProtection::Instance()->SetGvxAlarmRepMsg(type, inType, location, description);
}

// Called when the link to OMU has its identifier: whoever comes later finds it and does not wait any more.
void CGvxConnectionMgr::SendWaitingAlarms() {
    CEmergencyProtection::Instance()->SendAlarmsBehindOmu();
}

SendOutcome CGvxConnectionMgr::ReportToOmu(const _ZVS_GVX_DEV_ALARM_REPORT& report) {
    SendOutcome outcome{false, ZVS_FAIL};
    if (!AlarmsMayLeave()) {
        return outcome;
    }
    const AlarmFrame frame{NSS_DEV_ALARM_REPORT_REQ,
                           reinterpret_cast<const char*>(&report),
                           kGvxAlarmWireBytes,
                           report.cAlarmDesc,
                           strnlen(report.cAlarmDesc, sizeof(report.cAlarmDesc)),
                           "",
                           0};
    const std::string trans = BP::CMKTransID::GenerateTransID();
    const unsigned int seq = CGvxUtility::CreatSeqID();
    BP::MessageBlockPtr owned = MakeAlarmFrame(frame, seq, trans, outcome);
    if (owned == nullptr) {
        return outcome;
    }
    ACE_Message_Block* handed = owned.release();
    const int result = SendMsgIn(kElementOMU, GetOmuLinkId().c_str(), NSS_DEV_ALARM_REPORT_REQ, trans.c_str(), handed);
    owned.reset(handed);
    return {result == 0, result == 0 ? static_cast<int>(seq) : ZVS_FAIL, result == ZVS_ALLOC_MEMORY_ERROR};
}

SendOutcome CGvxConnectionMgr::SendDeviceAlarm(ZVS_ALARM_REPORT& report) {
    SendOutcome outcome{false, ZVS_FAIL};
    if (!AlarmsMayLeave()) {
        return outcome;
    }
    if (m_pGvxService == nullptr) {
        GVX_LOG_ERR_CODE("Send device alarm", ZVS_PARA_INVALID, "Gvx service pointer is null.");
        return {false, static_cast<int>(kNoServicePointer)};
    }
    report.bAction = htonl(report.bAction);
    report.uiOccurNumber = htonl(report.uiOccurNumber);
    const AlarmFrame frame{NSS_ALARM_REPORT_REQ,
                           reinterpret_cast<const char*>(&report),
                           kDeviceAlarmWireBytes,
                           report.cAlarmDesc,
                           strnlen(report.cAlarmDesc, sizeof(report.cAlarmDesc)),
                           report.cExtParam,
                           strnlen(report.cExtParam, sizeof(report.cExtParam))};
    const unsigned int seq = CGvxUtility::CreatSeqID();
    BP::MessageBlockPtr owned = MakeAlarmFrame(frame, seq, BP::CMKTransID::GenerateTransID(), outcome);
    if (owned == nullptr) {
        return outcome;
    }
    std::string target = "SCU#" + gvx::TextOf(report.cNvrCode);
    unsigned int elementType = kElementSCU;
    GetLinkInfoByType(BP::SUBSYS_SCU, elementType, target);  // the send tells whether there is a link
    const int result = gvx::SendOwned(*this, std::move(owned), kElementSCU, target, BP::CMKTransID::GenerateTransID(),
                                      NSS_ALARM_REPORT_REQ, m_pGvxService->GetServiceID());
    return {result == 0, result == 0 ? static_cast<int>(seq) : ZVS_FAIL};
}
