#pragma once

#include "bp/cmd.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>
#include <string>
#include <utility>

class CGvxReactor;

namespace BP {

// Serves one command. Made for it by the device's reactor, used on that reactor's thread alone, and destroyed
// when HandleCmd has returned.
class ISession {
public:
    virtual ~ISession() = default;
    // Serves the command, which stays the caller's. 0 for success.
    virtual int HandleCmd(const CCmd* cmd) = 0;
    // 0 when the command is served in this process.
    virtual int Routing(const CCmd* cmd) = 0;
    // Told when the answer that the session waits for is overdue.
    virtual int Timeout() = 0;
    // Asked to write down what must outlive the session.
    virtual int PersistentTempData() = 0;
};

enum class SessionKind { DeviceManage, DeviceConfig, DeviceStream, DeviceAlarm, GvxOmu, DevicePtz, DeviceRecord };

class CGvxSessionBase : public ISession {
public:
    // A session is made for every command of a reactor and destroyed on the same thread, so its memory and that of its
    // texts is kept there for the next one.
    explicit CGvxSessionBase(SessionKind kind);
    ~CGvxSessionBase() override;
    CGvxSessionBase(const CGvxSessionBase&) = delete;
    CGvxSessionBase& operator=(const CGvxSessionBase&) = delete;
    static void* operator new(std::size_t size);
    static void* operator new(std::size_t size, const std::nothrow_t&) noexcept;
    static void operator delete(void* memory, std::size_t size) noexcept;
    static void operator delete(void* memory, const std::nothrow_t&) noexcept;

    // Looks up the work registered for the command's request type and runs it on this thread. No work
    // registered: refuses a request with ZVS_GVX_DEV_UN_SUPPORT (see SetRefusalAnswer) and returns that code. An
    // exception that the work lets out is logged with the device and gives ZVS_FAIL; the request is refused with it,
    // with ZVS_ALLOC_MEMORY_ERROR for want of memory.
    int HandleCmd(const CCmd* cmd) override;
    int Routing(const CCmd* cmd) override;
    int Timeout() override;
    int PersistentTempData() override;

    void SetCmd(const CCmd* cmd) { m_pCmd = cmd; }
    void SetSessionID(const std::string& sessionID) { m_strSessionID = sessionID; }
    void SetSessionID(std::string&& sessionID) { m_strSessionID = std::move(sessionID); }
    void SetRespDevID(const std::string& devID) { m_strRespDevID = devID; }

    const CCmd* GetCmd() const { return m_pCmd; }  // not owned
    const std::string& GetSessionID() const { return m_strSessionID; }
    // The device that the command concerns; for a response, the device of the request that it answers.
    const std::string& GetRespDevID() const { return m_strRespDevID; }
    SessionKind GetKind() const { return m_kind; }
    // The reactor that serves the command; null where the session class is not told.
    CGvxReactor* GetReactor() const { return m_pReactor; }

protected:
    CGvxReactor* m_pReactor = nullptr;  // not owned

private:
    SessionKind m_kind;
    const CCmd* m_pCmd = nullptr;
    std::string m_strSessionID;
    std::string m_strRespDevID;
};

class CDeviceManageSession : public CGvxSessionBase {
public:
    CDeviceManageSession() : CGvxSessionBase(SessionKind::DeviceManage) {}
    void SetReactor(CGvxReactor* reactor) { m_pReactor = reactor; }
};
class CDeviceConfigSession : public CGvxSessionBase {
public:
    CDeviceConfigSession() : CGvxSessionBase(SessionKind::DeviceConfig) {}
};
class CDeviceStreamSession : public CGvxSessionBase {
public:
    CDeviceStreamSession() : CGvxSessionBase(SessionKind::DeviceStream) {}
};
class CDeviceAlarmSession : public CGvxSessionBase {
public:
    CDeviceAlarmSession() : CGvxSessionBase(SessionKind::DeviceAlarm) {}
};
class CGvxOmuSession : public CGvxSessionBase {
public:
    CGvxOmuSession() : CGvxSessionBase(SessionKind::GvxOmu) {}
};
class CDevicePtzSession : public CGvxSessionBase {
public:
    CDevicePtzSession() : CGvxSessionBase(SessionKind::DevicePtz) {}
};
class CDeviceRecordSession : public CGvxSessionBase {
public:
    CDeviceRecordSession() : CGvxSessionBase(SessionKind::DeviceRecord) {}
};

// What is done for a request type. The gateway registers it at start; replacing it later is safe, since a lookup
// takes a shared lock and holds the work that it found until the command is served.
using SessionWork = std::function<int(CGvxSessionBase& session, const CCmd& cmd)>;

// How a request that is not served is refused. Unless one is set: by a bare head on the link that the request came by.
// Set before the first command; an empty function brings that back.
using RefusalAnswer = std::function<void(const CCmd& cmd, int code)>;
void SetRefusalAnswer(RefusalAnswer answer);
// Refuses a request in that way. A response is not answered, nor is a command without a
// frame: nobody waits for either. Any thread.
void Refuse(const CCmd& cmd, int code) noexcept;

// Registers or replaces the work for a request type; an empty work removes it. Any thread.
void RegisterSessionWork(std::uint32_t reqID, SessionWork work);
// Removes all work; for the end of the process and for tests. Work that runs at this moment is finished.
void ClearSessionWork();

}  // namespace BP
