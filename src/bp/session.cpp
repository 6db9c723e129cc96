#include "bp/session.h"

#include "base/log.h"
#include "base/thread_own.h"
#include "bp/dispatcher.h"
#include "bp/frame_reader.h"
#include "bp/published.h"

#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <utility>

namespace BP {

namespace {

using WorkTable = std::map<std::uint32_t, std::shared_ptr<const SessionWork>>;

struct WorkRegistry {
    std::shared_mutex mutex;
    WorkTable table;  // Guarded by mutex.
};

// Never destroyed: reactors serve until late in the end of the process.
WorkRegistry& Registry() {
    static WorkRegistry& registry = *new WorkRegistry;
    return registry;
}

// The work for a request type; null when there is none. The work stays alive while the pointer is held, also when it
// is removed meanwhile. Allocates nothing.
std::shared_ptr<const SessionWork> FindSessionWork(std::uint32_t reqID) {
    WorkRegistry& registry = Registry();
    std::shared_lock<std::shared_mutex> guard(registry.mutex);
    const auto found = registry.table.find(reqID);
    return found != registry.table.end() ? found->second : nullptr;
}

// Answers a request with a bare head. A response is never answered, nor is a command without a frame: nobody waits
// for either.
void AnswerBare(const CCmd& cmd, int code) {
    NssMsgHeader head;
    if (cmd.GetReqID() >= kNssResponseOffset || !ReadFrameHead(cmd.GetMsgBlock(), head)) {
        return;
    }
    const std::uint32_t responseID = cmd.GetReqID() + kNssResponseOffset;
    head.usiProtocolVersion = kNssProtocolVersion;
    head.usiMsgType = static_cast<std::uint16_t>(responseID);
    head.uiRspCode = static_cast<std::uint32_t>(code);
    ACE_Message_Block* block = MakeBareFrame(head).release();
    const int result = CDispatcher::dispatcherOutWithoutTransaction(
        cmd.GetNetElemType(), cmd.GetNetLinkID().c_str(), cmd.GetTransID().c_str(), responseID, block, false, 0);
    if (result != ZVS_SUCCEED) {
        const MessageBlockPtr refused(block);
        GVX_LOG_ERR_CODE("Session answer", result, "The refusal of cmd[0x%04x] did not leave. [link:%s]",
                         cmd.GetReqID(), cmd.GetNetLinkID().c_str());
    }
}

using Refusal = Published<const RefusalAnswer>;

// Never destroyed: reactors serve until late in the end of the process.
Refusal& CurrentRefusal() {
    static Refusal& refusal = *new Refusal;
    return refusal;
}

constexpr std::size_t kSessionBytes = 256;

// What the last session of a thread has left for the next one.
struct SessionSpare {
    ~SessionSpare() { ::operator delete(memory); }
    void* memory = nullptr;
    std::string sessionID;
    std::string respDevID;
};

// Null without memory.
SessionSpare* Spare() {
    static gvx::ThreadOwn<SessionSpare> spares;
    return spares.Get();
}

std::string TakeSpare(std::string SessionSpare::*text) {
    SessionSpare* const spare = Spare();
    return spare != nullptr ? std::move(spare->*text) : std::string();
}

}  // namespace

CGvxSessionBase::CGvxSessionBase(SessionKind kind)
    : m_kind(kind),
      m_strSessionID(TakeSpare(&SessionSpare::sessionID)),
      m_strRespDevID(TakeSpare(&SessionSpare::respDevID)) {
    m_strSessionID.clear();
    m_strRespDevID.clear();
}

CGvxSessionBase::~CGvxSessionBase() {
    if (SessionSpare* const spare = Spare()) {
        spare->sessionID = std::move(m_strSessionID);
        spare->respDevID = std::move(m_strRespDevID);
    }
}

void* CGvxSessionBase::operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (size > kSessionBytes) {
        return ::operator new(size, std::nothrow);
    }
    SessionSpare* const spare = Spare();
    void* const kept = spare != nullptr ? std::exchange(spare->memory, nullptr) : nullptr;
    return kept != nullptr ? kept : ::operator new(kSessionBytes, std::nothrow);
}

void* CGvxSessionBase::operator new(std::size_t size) {
    void* const memory = operator new(size, std::nothrow);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void CGvxSessionBase::operator delete(void* memory, std::size_t size) noexcept {
    SessionSpare* const spare = Spare();
    if (size <= kSessionBytes && spare != nullptr && spare->memory == nullptr) {
        spare->memory = memory;
    } else {
        ::operator delete(memory);
    }
}

void CGvxSessionBase::operator delete(void* memory, const std::nothrow_t&) noexcept {
    ::operator delete(memory);
}

void Refuse(const CCmd& cmd, int code) noexcept {
    try {
        const std::shared_ptr<const RefusalAnswer> answer = CurrentRefusal().Get();
        if (answer == nullptr) {
            AnswerBare(cmd, code);
        } else if (cmd.GetReqID() < kNssResponseOffset && cmd.GetMsgBlock() != nullptr) {
            (*answer)(cmd, code);
        }
    } catch (const std::exception& fault) {
        GVX_LOG_ERR_CODE("Session answer", code, "The refusal of cmd[0x%04x] did not leave: %s [link:%s]",
                         cmd.GetReqID(), fault.what(), cmd.GetNetLinkID().c_str());
    }
}

void RegisterSessionWork(std::uint32_t reqID, SessionWork work) {
    std::shared_ptr<const SessionWork> entry;
    if (work) {
        entry = std::make_shared<const SessionWork>(std::move(work));
    }
    WorkRegistry& registry = Registry();
    std::unique_lock<std::shared_mutex> guard(registry.mutex);
    if (entry == nullptr) {
        const auto found = registry.table.find(reqID);
        if (found != registry.table.end()) {
            entry.swap(found->second);
            registry.table.erase(found);
        }
    } else {
        entry.swap(registry.table[reqID]);
    }
    guard.unlock();  // what the former work has captured is destroyed outside the lock
}

void ClearSessionWork() {
    WorkRegistry& registry = Registry();
    std::unique_lock<std::shared_mutex> guard(registry.mutex);
    const WorkTable removed = std::move(registry.table);
    registry.table.clear();
    guard.unlock();  // what the work has captured is destroyed outside the lock
}

void SetRefusalAnswer(RefusalAnswer answer) {
    CurrentRefusal().Exchange(answer ? std::make_shared<const RefusalAnswer>(std::move(answer)) : nullptr);
}

int CGvxSessionBase::HandleCmd(const CCmd* cmd) {
    GVX_CHECK_NULL_RETURN(cmd, ZVS_NULL_POINTER);
    const std::shared_ptr<const SessionWork> work = FindSessionWork(cmd->GetReqID());
    if (work == nullptr) {
        GVX_LOG_WARN("Session", "No work for cmd[0x%04x]. [dev:%s, link:%s]", cmd->GetReqID(), m_strRespDevID.c_str(),
                     cmd->GetNetLinkID().c_str());
        Refuse(*cmd, ZVS_GVX_DEV_UN_SUPPORT);
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    try {
        return (*work)(*this, *cmd);
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR_CODE("Session", ZVS_ALLOC_MEMORY_ERROR, "The work for cmd[0x%04x] found no memory. [dev:%s]",
                         cmd->GetReqID(), m_strRespDevID.c_str());
        Refuse(*cmd, ZVS_ALLOC_MEMORY_ERROR);
        return ZVS_FAIL;
    } catch (const std::exception& fault) {
        GVX_LOG_ERR("Session", "The work for cmd[0x%04x] threw: %s [dev:%s]", cmd->GetReqID(), fault.what(),
                    m_strRespDevID.c_str());
    } catch (...) {
        GVX_LOG_ERR("Session", "The work for cmd[0x%04x] threw something unknown. [dev:%s]", cmd->GetReqID(),
                    m_strRespDevID.c_str());
    }
    Refuse(*cmd, ZVS_FAIL);
    return ZVS_FAIL;
}

// There is one process only, so every command is served here.
int CGvxSessionBase::Routing(const CCmd* cmd) {
    GVX_CHECK_NULL_RETURN(cmd, ZVS_NULL_POINTER);
    return ZVS_SUCCEED;
}

int CGvxSessionBase::Timeout() {
    GVX_LOG_WARN("Session", "The answer is overdue. [session:%s, dev:%s]", m_strSessionID.c_str(),
                 m_strRespDevID.c_str());
    return ZVS_SUCCEED;
}

// A session ends with its command and owns nothing that outlives it.
int CGvxSessionBase::PersistentTempData() {
    GVX_DEBUG("Nothing to keep of session[%s]", m_strSessionID.c_str());
    return ZVS_SUCCEED;
}

}  // namespace BP
