#include "gvx_common/event/gvx_reactor.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "bp/service.h"
#include "bp/session.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/event/NVR_Reactor.h"
#include "gvx_common/event/gvx_reactor_session_table.h"
#include "gvx_common/records/adapter_common_message.h"
#include "gvx_common/utility/gvx_utility.h"
#include "nss/nss_msg_header.h"
#include "nss/nss_msg_type.h"

#include <ace/Guard_T.h>
#include <ace/Message_Block.h>

#include <cerrno>
#include <exception>
#include <memory>
#include <new>
#include <utility>

#include <arpa/inet.h>

namespace {

// Bits that mark the requests of media units.
constexpr std::uint32_t kMediaUnitBits = 0x500;
// The one kind of SDK exception that a full queue still takes.
constexpr std::uint16_t kUrgentExceptionType = 1;

bool IsDeviceDeletion(std::uint32_t reqID) {
    return reqID == NSS_DEL_MAIN_DEV_REQ || reqID == NSS_DELETE_EXTERN_SYS_REQ || reqID == GVX_INTERNAL_REQ_DELETE;
}

// Keys longer than a string keeps within itself, made once. They live until the process ends, since reactors stop
// late in its end.
struct ExpiryTexts {
    const std::string neverKey = "NEVER_TIMEOUT_MESSAGE_TYPE";
    const std::string neverDefault = "0x0109,0x0a14,0x0110,0x0503,0xffff,0xfffc,0xfffb,0xfffa";
};

const ExpiryTexts& Texts() {
    static const ExpiryTexts& texts = *new ExpiryTexts;
    return texts;
}

// Seconds; read at every pop, so an edited value takes effect at once.
int ExpiryLimit(std::uint32_t reqID) {
    const bool ofMediaUnit = (reqID & kMediaUnitBits) == kMediaUnitBits;
    return static_cast<int>(
        gvx::SettingNumber(ofMediaUnit ? gvx::Setting::MU_NSS_TIMEOUT : gvx::Setting::OTHERS_NSS_TIMEOUT));
}

bool IsLate(const BP::CCmd& cmd, int limit) {
    if (limit == 0 || cmd.GetTimestamp() <= 0) {
        return false;
    }
    const std::time_t waited = BP::OSTime::Time() - cmd.GetTimestamp();
    if (waited < limit) {
        return false;
    }
    GVX_LOG_INFO("discard timeout cmd", "Cmd[0x%04x] wait more than %u s,  wait %ld s.", cmd.GetReqID(),
                 static_cast<unsigned int>(limit), static_cast<long>(waited));
    return true;
}

// The number without prefix and leading zeros is looked for anywhere in the list, so "10" is found within "0x0109".
bool MayBeDiscarded(std::uint32_t reqID) {
    const ExpiryTexts& texts = Texts();
    const std::string never = CGvxConfigMgr::Instance()->GetConfValue(texts.neverKey, texts.neverDefault);
    if (never.find(CGvxUtility::toLower(CGvxUtility::hexToStr(reqID))) != std::string::npos) {
        return false;
    }
    GVX_DEBUG("Cmd[0x%04x] is allow to discard.", reqID);
    return true;
}

// A re-addition that is queued behind the deletion of its device stays.
bool SurvivesDeletion(const BP::CGvxNssCmd_& queued, const std::string& deletedDevID) {
    if (queued.m_pCmd == nullptr) {
        GVX_LOG_ERR("discard cmd", " dev[%s] cmd is NULL.", queued.m_devID.c_str());
        return false;
    }
    const std::uint32_t reqID = queued.m_pCmd->GetReqID();
    if (queued.m_devID != deletedDevID) {
        GVX_DEBUG("DiscardOthersCmd dev[%s] push back cmd[0x%04x].", queued.m_devID.c_str(), reqID);
        return true;
    }
    if (reqID == NSS_ADD_MAIN_DEV_REQ) {
        return true;
    }
    GVX_LOG_INFO("discard cmd", " dev[%s] discard cmd[0x%04x].", queued.m_devID.c_str(), reqID);
    return false;
}

template <typename Session>
std::unique_ptr<BP::CGvxSessionBase> NewSession() {
    return std::unique_ptr<BP::CGvxSessionBase>(new (std::nothrow) Session());
}

std::unique_ptr<BP::CGvxSessionBase> NewManageSession(CGvxReactor* reactor) {
    std::unique_ptr<BP::CDeviceManageSession> session(new (std::nothrow) BP::CDeviceManageSession());
    if (session != nullptr) {
        session->SetReactor(reactor);
    }
    return session;
}

std::unique_ptr<BP::CGvxSessionBase> NewSessionOfKind(BP::SessionKind kind, CGvxReactor* reactor) {
    switch (kind) {
        case BP::SessionKind::DeviceManage:
            return NewManageSession(reactor);
        case BP::SessionKind::DeviceConfig:
            return NewSession<BP::CDeviceConfigSession>();
        case BP::SessionKind::DeviceStream:
            return NewSession<BP::CDeviceStreamSession>();
        case BP::SessionKind::DeviceAlarm:
            return NewSession<BP::CDeviceAlarmSession>();
        case BP::SessionKind::GvxOmu:
            return NewSession<BP::CGvxOmuSession>();
        case BP::SessionKind::DevicePtz:
            return NewSession<BP::CDevicePtzSession>();
        case BP::SessionKind::DeviceRecord:
            return NewSession<BP::CDeviceRecordSession>();
    }
    return nullptr;
}

// The sequence number of a response, which names the request that it answers; 0 for a frame without a whole head.
unsigned int SequenceOf(const ACE_Message_Block& frame) {
    NssMsgHeader header{};
    const char* const head = frame.length() >= sizeof(header) ? frame.rd_ptr() : nullptr;
    if (memcpy_s(&header, sizeof(header), head, sizeof(header)) != 0) {
        GVX_LOG_ERR("handle cmd", "memcpy_s failed!");
    }
    return ntohl(header.uiSeqID);
}

}  // namespace

int CGvxReactor::PushMessage(const BP::CGvxNssCmd_& cmd) {
    if (const int refused = EnqueueCmd(cmd); refused != 0) {
        return refused;
    }
    const int result = notify(this, ACE_Event_Handler::EXCEPT_MASK);
    if (result != 0) {
        TakeBackLastCmd();
    }
    return result;
}

int CGvxReactor::EnqueueCmd(const BP::CGvxNssCmd_& cmd) {
    const BP::CCmd* const pCmd = cmd.m_pCmd;
    GVX_CHECK_NULL_RETURN(pCmd, 1);
    const CFunction_Log_Begin_End scope("guard dev cmd queue mutex when push cmd", cmd.m_devID.c_str());
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_mutexCmd);
    if (!guard.locked()) {
        return 1;
    }
    const std::uint32_t reqID = pCmd->GetReqID();
    if (m_queueCmd.size() > m_iMaxCmdCnt && reqID != NSS_STOP_STREAM_REQ) {
        if (const int refused = PushMsgWhenQueueFull(cmd); refused != 0) {
            return refused;
        }
    }
    if (!QueueClone(cmd)) {
        const int error = errno;
        GVX_LOG_ERR("push message", "cmd create failed with errno[%d]", error);
        return 1;
    }
    GVX_DEBUG("Push cmd to device queue., Dev[%s] push message[0x%04x], queueSize[%lu].", cmd.m_devID.c_str(), reqID,
              m_queueCmd.size());
    return 0;
}

// False when there is no memory; nothing is queued then. Under m_mutexCmd.
bool CGvxReactor::QueueClone(const BP::CGvxNssCmd_& cmd) {
    std::unique_ptr<BP::CCmd> clone(cmd.m_pCmd->NewClone());
    if (clone == nullptr) {
        return false;
    }
    try {
        BP::CGvxNssCmd_ entry{clone.get(), cmd.m_tRecvTime, std::string()};
        if (!m_spareTexts.empty()) {
            entry.m_devID = std::move(m_spareTexts.back());
            m_spareTexts.pop_back();
        }
        entry.m_devID = cmd.m_devID;
        // A deletion goes to the front: what it makes moot is then purged unserved.
        if (IsDeviceDeletion(clone->GetReqID())) {
            m_queueCmd.push_front(std::move(entry));
        } else {
            m_queueCmd.push_back(std::move(entry));
        }
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return false;
    }
    static_cast<void>(clone.release());  // the queue's now
    return true;
}

// Drops the command at the back of the queue. A deletion stands at the front, so the command that nobody was told of
// may be another one.
void CGvxReactor::TakeBackLastCmd() {
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_mutexCmd);
    if (guard.locked() && !m_queueCmd.empty()) {
        delete m_queueCmd.back().m_pCmd;
        m_queueCmd.pop_back();
    }
    GVX_LOG_ERR("push message", "Input param is null Reactor[%p].", static_cast<void*>(m_pReactor));
}

int CGvxReactor::PushMsgWhenQueueFull(const BP::CGvxNssCmd_& cmd) {
    if (cmd.m_pCmd->GetReqID() != GVX_INTERNAL_REQ_SDK_EXCEPTION) {
        return RefuseCmd(cmd);
    }
    const ACE_Message_Block* const pMb = cmd.m_pCmd->GetMsgBlock();
    GVX_CHECK_NULL_RETURN(pMb, 1);
    const auto* const pMessage = reinterpret_cast<const ADAPTER_COMMON_MESSAGE*>(pMb->rd_ptr());
    GVX_CHECK_NULL_RETURN(pMessage, 1);
    if (pMb->length() >= sizeof(ADAPTER_COMMON_MESSAGE) && pMessage->ExceptionType == kUrgentExceptionType) {
        return 0;
    }
    return RefuseCmd(cmd);
}

// A line for the first command of an episode, which lasts until the queue has emptied by half.
int CGvxReactor::RefuseCmd(const BP::CGvxNssCmd_& cmd) {
    ++m_refusedInAll;
    if (m_refusedCmds++ == 0) {
        GVX_LOG_ERR("push message", "device cmd queue excceed max size. [dev:%s]", cmd.m_devID.c_str());
    }
    return 1;
}

void CGvxReactor::TellRefusedCmds() {
    if (m_refusedCmds != 0 && m_queueCmd.size() <= m_iMaxCmdCnt / 2) {
        GVX_LOG_WARN("push message", "device cmd queue takes commands again, refused[%lu].",
                     std::exchange(m_refusedCmds, 0));
    }
}

int CGvxReactor::PopMessage(BP::CGvxNssCmd_& out) {
    const CFunction_Log_Begin_End scope("guard dev cmd queue mutex when handle cmd", "");
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_mutexCmd);
    if (!guard.locked()) {
        return 1;
    }
    // Never beyond what is reserved: without memory here, the command would not be taken.
    if (m_spareTexts.size() < m_spareTexts.capacity() && !out.m_devID.empty()) {
        m_spareTexts.push_back(std::move(out.m_devID));
    }
    out.m_devID.clear();
    if (m_queueCmd.empty()) {
        return 1;
    }
    BP::CGvxNssCmd_ entry = std::move(m_queueCmd.front());
    m_queueCmd.pop_front();
    if (entry.m_pCmd == nullptr) {
        TellRefusedCmds();
        GVX_LOG_ERR("pop message", "cmd is NULL");
        return 2;
    }
    std::unique_ptr<BP::CCmd> cmd(entry.m_pCmd);
    const std::uint32_t reqID = cmd->GetReqID();
    DiscardCmdAfterDelDev(entry);
    TellRefusedCmds();
    if (DiscardTimeoutCmd(cmd)) {
        return 1;
    }
    GVX_DEBUG("Dev[%s] pop message[0x%04x], queueSize[%lu].", out.m_devID.c_str(), reqID, m_queueCmd.size());
    ++m_poppedCmds;
    out = std::move(entry);
    static_cast<void>(cmd.release());  // the caller's now
    return 0;
}

CGvxReactor::Load CGvxReactor::GetLoad() {
    Load load;
    load.threadName = m_aucThreadName;
    load.most = m_iMaxCmdCnt;
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_mutexCmd);
    load.queued = m_queueCmd.size();
    load.served = m_poppedCmds;
    load.refused = m_refusedInAll;
    return load;
}

// Moves the survivors together in their order. It allocates nothing, so it cannot fail half way and lose a command.
void CGvxReactor::DiscardCmdAfterDelDev(const BP::CGvxNssCmd_& entry) {
    if (!IsDeviceDeletion(entry.m_pCmd->GetReqID())) {
        return;
    }
    auto kept = m_queueCmd.begin();
    for (auto queued = m_queueCmd.begin(); queued != m_queueCmd.end(); ++queued) {
        if (!SurvivesDeletion(*queued, entry.m_devID)) {
            delete std::exchange(queued->m_pCmd, nullptr);
            continue;
        }
        if (kept != queued) {
            std::swap(*kept, *queued);
        }
        ++kept;
    }
    m_queueCmd.erase(kept, m_queueCmd.end());
}

bool CGvxReactor::DiscardTimeoutCmd(std::unique_ptr<BP::CCmd>& cmd) {
    const std::uint32_t reqID = cmd->GetReqID();
    const bool late = IsLate(*cmd, ExpiryLimit(reqID));
    // For a command in time the rest only writes a debug line.
    if (!late && !OMLogEnabled(OM_LOG_DEBUG)) {
        return false;
    }
    if (!MayBeDiscarded(reqID) || !late) {
        return false;
    }
    cmd.reset();
    GVX_LOG_INFO("discard timeout cmd", "Cmd[0x%04x] will discard.", reqID);
    return true;
}

// An exception that serving lets out costs the one command and not the process.
int CGvxReactor::handle_exception(ACE_HANDLE) {
    BP::CGvxNssCmd_& entry = m_served;
    std::unique_ptr<BP::CCmd> cmd;
    int code = ZVS_FAIL;
    try {
        return ServeNextCmd(entry, cmd);
    } catch (const std::exception& fault) {
        code = dynamic_cast<const std::bad_alloc*>(&fault) != nullptr ? ZVS_ALLOC_MEMORY_ERROR : ZVS_FAIL;
        GVX_LOG_ERR("handle cmd", "Serving reqID[0x%04x] threw: %s devID[%s]", cmd != nullptr ? cmd->GetReqID() : 0,
                    fault.what(), entry.m_devID.c_str());
    } catch (...) {
        GVX_LOG_ERR("handle cmd", "Serving reqID[0x%04x] threw something unknown. devID[%s]",
                    cmd != nullptr ? cmd->GetReqID() : 0, entry.m_devID.c_str());
    }
    if (cmd != nullptr) {
        BP::Refuse(*cmd, code);
    }
    return 1;
}

int CGvxReactor::ServeNextCmd(BP::CGvxNssCmd_& entry, std::unique_ptr<BP::CCmd>& cmd) {
    if (const int nothing = PopMessage(entry); nothing != 0) {
        return nothing;
    }
    cmd.reset(entry.m_pCmd);
    GVX_DEBUG("DeviceReactor handle cmd, reqID[0x%04x] devID[%s]", cmd->GetReqID(), entry.m_devID.c_str());
    if (cmd->GetReqID() == GVX_INTERNAL_REQ_SDK_EXCEPTION) {
        BP::CDeviceMgr::ProcessSdkException(cmd->GetMsgBlock());
        return 0;
    }
    return ServeCmd(*cmd, entry.m_devID);
}

int CGvxReactor::ServeCmd(const BP::CCmd& cmd, const std::string& devID) {
    const std::unique_ptr<BP::CGvxSessionBase> session = CreatSession(&cmd, devID);
    if (session == nullptr) {
        GVX_LOG_ERR("handle cmd", "not create session by reqID[0x%04x]", cmd.GetReqID());
        // A session that is known and not there has found no memory.
        BP::Refuse(cmd, FindSessionKind(cmd.GetReqID()) ? ZVS_ALLOC_MEMORY_ERROR : ZVS_GVX_DEV_UN_SUPPORT);
        return 1;
    }
    session->SetCmd(&cmd);
    if (cmd.GetReqID() >= kNssResponseOffset && cmd.GetMsgBlock() != nullptr) {
        session->SetRespDevID(BP::CDeviceMgr::GetReqDevID(SequenceOf(*cmd.GetMsgBlock())));
    }
    return session->HandleCmd(&cmd);
}

std::unique_ptr<BP::CGvxSessionBase> CGvxReactor::CreatSession(const BP::CCmd* pCmd, const std::string& devID) {
    GVX_CHECK_NULL_RETURN(pCmd, nullptr);
    const unsigned int seq = CGvxUtility::CreatSeqID();
    BP::CMKTransID::GenerateTransID(m_sessionID);
    GVX_DEBUG("Create session as req id[0x%04x], dev id[%s]", pCmd->GetReqID(), devID.c_str());
    const std::optional<BP::SessionKind> kind = FindSessionKind(pCmd->GetReqID());
    if (!kind) {
        GVX_LOG_ERR("create session", "Not support this message type with seq id[0x%04x]", seq);
        return nullptr;
    }
    std::unique_ptr<BP::CGvxSessionBase> pSession = NewSessionOfKind(*kind, this);
    GVX_CHECK_NULL_RETURN(pSession, nullptr);
    pSession->SetCmd(pCmd);
    pSession->SetSessionID(m_sessionID);
    pSession->SetRespDevID(devID);
    return pSession;
}
