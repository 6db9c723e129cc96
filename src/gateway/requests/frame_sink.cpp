#include "gateway/requests/frame_sink.h"

#include "base/log.h"
#include "bp/dispatcher.h"
#include "bp/message_block_ptr.h"
#include "bp/session.h"
#include "gateway/messages/answer.h"
#include "gateway/requests/device_work.h"
#include "gateway/requests/gateway_context.h"
#include "gvx_common/event/gvx_reactor.h"
#include "gvx_common/forms/request_table.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "gvx_common/ports/gvx_port_mgr.h"
#include "nss/nss_msg_header.h"
#include "nss/nss_msg_type.h"

#include <ace/Message_Block.h>

#include <new>
#include <set>

namespace gvx {

namespace {

// Whether a request is for a plug-in as a whole.
bool ConcernsPlugin(std::uint32_t reqID) {
    static const std::set<std::uint32_t> requests = [] {
        std::set<std::uint32_t> numbers{NSS_START_SEARCH_DEVICE_REQ, NSS_STOP_SEARCH_DEVICE_REQ};
        for (const RequestRow& row : AllRequests()) {
            if (row.scope == RequestScope::Plugin) {
                numbers.insert(row.reqID);
            }
        }
        return numbers;
    }();
    return requests.count(reqID) != 0;
}

}  // namespace

int FrameSink::Take(BP::CCmd& cmd) {
    try {
        return TakeOrThrow(cmd);
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR_CODE("Request", ZVS_ALLOC_MEMORY_ERROR, "cmd[0x%04x] is refused. [link:%s]", cmd.GetReqID(),
                         cmd.GetNetLinkID().c_str());
        BP::Refuse(cmd, ZVS_ALLOC_MEMORY_ERROR);
        return ZVS_SUCCEED;
    }
}

int FrameSink::TakeOrThrow(BP::CCmd& cmd) {
    // What the core feeds in for the operation and maintenance unit leaves by that unit's link, as long as there is
    // one. The mark of such a command keeps a frame that a link brought from being reflected.
    if (cmd.IsFedIn() && cmd.GetNetElemType() == kElementOMU) {
        return ForwardToOmu(cmd);
    }
    if (m_context.stopping) {
        return ZVS_FAIL;
    }
    if (ConsumeOwnAnswer(cmd)) {
        return ZVS_SUCCEED;
    }
    // A block without a head is fed in by ourselves: a link lets whole frames through only.
    const ACE_Message_Block* const block = cmd.GetMsgBlock();
    const bool hasFrame = block != nullptr && block->length() >= kNssHeaderBytes;
    const RequestTarget target = hasFrame ? ReadRequestTarget(*block) : RequestTarget{};
    if (target.malformed) {
        GVX_LOG_ERR_CODE("Malformed request", ZVS_PARA_INVALID, "cmd[0x%04x] %s [link:%s]", cmd.GetReqID(),
                         target.reason.c_str(), cmd.GetNetLinkID().c_str());
        AnswerBare(cmd, ZVS_PARA_INVALID);
        return ZVS_SUCCEED;
    }
    if (cmd.GetReqID() == NSS_ADD_MAIN_DEV_REQ) {
        PushAddition(cmd, target.device);
        return ZVS_SUCCEED;
    }
    if (hasFrame && ConcernsPlugin(cmd.GetReqID())) {
        const std::string plugin = ReadRequestPlugin(*block);
        if (m_context.plugins.Find(plugin) != nullptr) {
            Push(cmd, target.device, m_context.pluginReactors.Of(plugin));
            return ZVS_SUCCEED;
        }
    }
    CGvxReactor* reactor = target.device.empty() ? nullptr : m_context.binder.Find(target.device);
    Push(cmd, target.device, reactor != nullptr ? reactor : m_context.gatewayReactor);
    return ZVS_SUCCEED;
}

// The answers to the list of plug-ins and to reports belong to no session, and neither do those of the port exchange
// that come when nobody waits for them any more.
bool FrameSink::ConsumeOwnAnswer(const BP::CCmd& cmd) {
    if (cmd.GetReqID() == NSS_PLUGIN_APPLY_PORTLIST_DATA_RSP) {
        if (cmd.GetNetElemType() != kElementGVX) {
            GVX_LOG_WARN("Port answer", "Only the main service hands out ports. [link:%s]", cmd.GetNetLinkID().c_str());
            return true;
        }
        CGvxPortMgr::Instance()->TakeLateReply(cmd.GetMsgBlock());
        return true;
    }
    if (cmd.GetReqID() == NSS_PLUGIN_SEND_PORTLIST_DATA_RSP || cmd.GetReqID() == NSS_DISCOVERED_DEVICE_NOTIFY_RSP ||
        cmd.GetReqID() == NSS_FILE_TO_END_RSP) {
        return true;
    }
    if (cmd.GetReqID() != NSS_PROTOCOL_PLUGIN_INSTALL_NOTIFY_RSP) {
        return false;
    }
    if (const std::uint32_t code = ResponseCode(cmd).value_or(0); code != 0) {
        GVX_LOG_WARN_CODE("Register plug-ins", code, "The main service refuses the list.");
    }
    return true;
}

// The command is not ours to empty, hence the copy.
int FrameSink::ForwardToOmu(const BP::CCmd& cmd) {
    BP::MessageBlockPtr copy(cmd.GetMsgBlock() != nullptr ? cmd.GetMsgBlock()->clone() : nullptr);
    ACE_Message_Block* handed = copy.release();
    const int result = BP::CDispatcher::dispatcherOutWithoutTransaction(
        kElementOMU, cmd.GetNetLinkID().c_str(), cmd.GetTransID().c_str(), cmd.GetReqID(), handed, false, 0);
    copy.reset(handed);
    if (result != ZVS_SUCCEED) {
        GVX_LOG_ERR_CODE("Forward to OMU", result, "cmd[0x%04x] did not leave. [link:%s]", cmd.GetReqID(),
                         cmd.GetNetLinkID().c_str());
    }
    return result;
}

// A key is bound by an addition alone, and not by one that cannot succeed, so that requests for devices that do not
// exist cost no memory; the gateway's own reactor answers those.
void FrameSink::PushAddition(BP::CCmd& cmd, const std::string& device) {
    const auto addition = std::make_shared<Addition>(m_context, device);
    Result result = ReadDeviceRequest(m_context.plugins, cmd, *addition);
    CGvxReactor* reactor = nullptr;
    if (!result.Failed()) {
        reactor = m_context.binder.BindForAddition(device, result.reason);
        result.code = reactor == nullptr ? ZVS_FAIL : ZVS_SUCCEED;
    }
    if (result.Failed()) {
        GVX_LOG_ERR_CODE("Add device", result.code, "%s [dev:%s, link:%s]", result.reason.c_str(), device.c_str(),
                         cmd.GetNetLinkID().c_str());
        RefuseXml(cmd, device, result);
        return;
    }
    addition->NoteBound();
    cmd.SetAttachment(addition);
    if (!Queue(cmd, device, reactor)) {
        addition->Settle();
        AnswerBare(cmd, ZVS_FAIL);
    }
}

// What the queue refuses is answered.
void FrameSink::Push(BP::CCmd& cmd, const std::string& device, CGvxReactor* reactor) {
    if (!Queue(cmd, device, reactor)) {
        AnswerBare(cmd, ZVS_FAIL);
    }
}

bool FrameSink::Queue(BP::CCmd& cmd, const std::string& device, CGvxReactor* reactor) {
    CGvxNssCmd entry;
    entry.m_pCmd = &cmd;  // the queue takes a clone
    entry.m_tRecvTime = BP::OSTime::Time();
    entry.m_devID = device;
    if (reactor != nullptr && reactor->PushMessage(entry) == 0) {
        return true;
    }
    // A reactor has said so itself, once for all commands that it refuses in one go.
    if (reactor == nullptr) {
        GVX_LOG_ERR_CODE("Request refused", ZVS_FAIL, "cmd[0x%04x] finds no reactor. [dev:%s, link:%s]", cmd.GetReqID(),
                         device.c_str(), cmd.GetNetLinkID().c_str());
    }
    return false;
}

}  // namespace gvx
