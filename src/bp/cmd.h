#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <utility>

class ACE_Message_Block;

// Request types that never travel on a link: the layers inside the gateway give them to each other.
enum enGvxInternalRequest : std::uint32_t {
    GVX_INTERNAL_REQ_ALARM_CONTROL = 0xDC11,  // fed in by this process itself when the main service's link opens
    GVX_INTERNAL_REQ_PLUGIN_CALL = 0xFFFA,    // a call of a plug-in that its own thread is to make
    GVX_INTERNAL_REQ_DELETE = 0xFFFB,         // treated like the deletion of a device
    GVX_INTERNAL_REQ_FFFC = 0xFFFC,           // never expires
    GVX_INTERNAL_REQ_SDK_EXCEPTION = 0xFFFF,  // its block holds an ADAPTER_COMMON_MESSAGE
};

// Whether a type is one of those above, which no peer may send.
constexpr bool IsInternalRequest(std::uint32_t reqID) noexcept {
    return reqID == GVX_INTERNAL_REQ_ALARM_CONTROL || (reqID >= GVX_INTERNAL_REQ_PLUGIN_CALL && reqID <= 0xFFFF);
}

namespace BP {

// What whoever takes a command in has read from its frame already, for whoever serves it.
class CmdAttachment {
public:
    virtual ~CmdAttachment() = default;
};

// One command: a frame and where it came from. The object owns its message block (the whole frame, head
// included) and releases it. Not shared between threads: it is handed on.
class CCmd {
public:
    CCmd();
    ~CCmd();
    CCmd(const CCmd&) = delete;
    CCmd& operator=(const CCmd&) = delete;

    // A message type, or an enGvxInternalRequest.
    std::uint32_t GetReqID() const { return m_uiReqID; }
    void SetReqID(std::uint32_t reqID) { m_uiReqID = reqID; }

    // The frame; null for a command without one. Stays owned by the command.
    ACE_Message_Block* GetMsgBlock() const { return m_pMsgBlock; }
    // Takes ownership and releases the previous block.
    void SetMsgBlock(ACE_Message_Block* block);
    // Gives ownership away; the command is then without a block.
    ACE_Message_Block* ReleaseMsgBlock();

    // Wall time of arrival in seconds; 0 means unknown, and such a command never expires.
    std::time_t GetTimestamp() const { return m_timestamp; }
    void SetTimestamp(std::time_t timestamp) { m_timestamp = timestamp; }

    int GetNetElemType() const { return m_iNetElemType; }
    void SetNetElemType(int netElemType) { m_iNetElemType = netElemType; }

    const std::string& GetNetLinkID() const { return m_strNetLinkID; }
    void SetNetLinkID(std::string linkID) { m_strNetLinkID = std::move(linkID); }

    const std::string& GetTransID() const;
    void SetTransID(std::string transID);

    std::uint32_t GetServiceID() const { return m_uiServiceID; }
    void SetServiceID(std::uint32_t serviceID) { m_uiServiceID = serviceID; }

    // True for a command that this process fed in itself; one that a link brought is never so.
    bool IsFedIn() const { return m_bFedIn; }
    void SetFedIn(bool fedIn) { m_bFedIn = fedIn; }

    // Null unless one was set. Clones share it.
    const std::shared_ptr<CmdAttachment>& GetAttachment() const { return m_pAttachment; }
    void SetAttachment(std::shared_ptr<CmdAttachment> attachment) { m_pAttachment = std::move(attachment); }

    // A deep copy, message block and its data included; null when there is no memory. The caller owns it.
    CCmd* NewClone() const noexcept;

private:
    std::uint32_t m_uiReqID = 0;
    int m_iNetElemType = 0;
    std::uint32_t m_uiServiceID = 0;
    bool m_bFedIn = false;
    std::time_t m_timestamp = 0;
    ACE_Message_Block* m_pMsgBlock = nullptr;  // owned
    std::string m_strNetLinkID;
    std::shared_ptr<const std::string> m_strTransID;  // null: empty; never changed, so clones share it
    std::shared_ptr<CmdAttachment> m_pAttachment;
};

// A queue entry. Copying it copies the pointer only, and its destructor does not free the command: whoever
// takes the entry out of a queue owns the command.
struct CGvxNssCmd_ {
    CCmd* m_pCmd = nullptr;
    std::time_t m_tRecvTime = 0;
    std::string m_devID;
};

// Wall time in seconds, from the one clock.
struct OSTime {
    static std::time_t Time();
};

// Makes transaction texts: unique in this process and, by a random part drawn at start, among processes. At
// most 40 characters. Any thread.
struct CMKTransID {
    static std::string GenerateTransID();
    // Into a text that is used again and again, which allocates nothing.
    static void GenerateTransID(std::string& text);
};

}  // namespace BP

using CGvxNssCmd = BP::CGvxNssCmd_;
