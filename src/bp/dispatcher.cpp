#include "bp/dispatcher.h"

#include "base/log.h"
#include "bp/frame_reader.h"
#include "bp/link_engine.h"
#include "bp/net_factory.h"
#include "bp/published.h"
#include "bp/transactions.h"

#include <atomic>
#include <exception>
#include <new>
#include <utility>

namespace BP {

namespace {

// Neither slot is ever destroyed: reactors serve, and hence send, until late in the end of the process.
Published<const CDispatcher::Sink>& SinkSlot() {
    static auto& slot = *new Published<const CDispatcher::Sink>;
    return slot;
}

Published<const CDispatcher::Writer>& WriterSlot() {
    static auto& slot = *new Published<const CDispatcher::Writer>;
    return slot;
}

std::atomic<CDispatcher::Tap> g_tap{nullptr};

void ShowToTap(bool in, const std::string& link, const ACE_Message_Block& frame) {
    if (const CDispatcher::Tap tap = g_tap.load(std::memory_order_relaxed); tap != nullptr) {
        tap(in, link, frame);
    }
}

int CheckOutgoing(const ACE_Message_Block* block, bool compress) {
    if (block == nullptr) {
        return ZVS_NULL_POINTER;
    }
    return compress || !IsWholeFrame(block) ? ZVS_PARA_INVALID : ZVS_SUCCEED;
}

const char* TextOf(const char* text) {
    return text != nullptr ? text : "";
}

// Takes the block over and sets the reference null when the answer is 0.
int WriteFrame(const char* linkID, std::uint32_t reqID, ACE_Message_Block*& block) {
    const std::string link(TextOf(linkID));
    ShowToTap(false, link, *block);
    const std::shared_ptr<const CDispatcher::Writer> writer = WriterSlot().Get();
    const int result = writer != nullptr ? (*writer)(link, block) : CNetFactory::Send(link, block);
    if (result == ZVS_SUCCEED) {
        block = nullptr;
    }
    GVX_DEBUG("Frame[0x%04x] out, result[%d]. [link:%s]", reqID, result, link.c_str());
    return result;
}

std::unique_ptr<CCmd> MakeCommand(int netElemType, const char* linkID, std::uint32_t reqID, std::string transID) {
    std::unique_ptr<CCmd> cmd(new (std::nothrow) CCmd);
    if (cmd != nullptr) {
        cmd->SetReqID(reqID);
        cmd->SetNetElemType(netElemType);
        cmd->SetNetLinkID(linkID);
        cmd->SetTransID(std::move(transID));
        cmd->SetTimestamp(OSTime::Time());
    }
    return cmd;
}

int HandToSink(std::unique_ptr<CCmd> cmd) {
    const std::uint32_t reqID = cmd->GetReqID();
    const std::shared_ptr<const CDispatcher::Sink> sink = SinkSlot().Get();
    if (sink == nullptr) {
        GVX_LOG_WARN("Dispatcher", "Nobody takes frames in, cmd[0x%04x] is refused. [link:%s]", reqID,
                     cmd->GetNetLinkID().c_str());
        return ZVS_FAIL;
    }
    try {
        return (*sink)(std::move(cmd));
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR_CODE("Dispatcher", ZVS_ALLOC_MEMORY_ERROR, "cmd[0x%04x] is lost.", reqID);
        return ZVS_ALLOC_MEMORY_ERROR;
    } catch (const std::exception& fault) {
        GVX_LOG_ERR("Dispatcher", "The taker of cmd[0x%04x] threw: %s", reqID, fault.what());
    } catch (...) {
        GVX_LOG_ERR("Dispatcher", "The taker of cmd[0x%04x] threw something unknown.", reqID);
    }
    return ZVS_FAIL;
}

int Route(std::unique_ptr<CCmd> cmd) {
    if (cmd->GetReqID() >= kNssResponseOffset && cmd->GetReqID() <= 0xFFFF) {
        cmd = TransactionTable::Instance().Deliver(std::move(cmd));
        if (cmd == nullptr) {
            return ZVS_SUCCEED;
        }
    }
    return HandToSink(std::move(cmd));
}

}  // namespace

void CDispatcher::SetSink(Sink sink) {
    SinkSlot().Exchange(sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr);
}

void CDispatcher::SetWriter(Writer writer) {
    WriterSlot().Exchange(writer ? std::make_shared<const Writer>(std::move(writer)) : nullptr);
}

void CDispatcher::SetTap(Tap tap) {
    g_tap = tap;
}

LinkRoom CDispatcher::RoomOf(const std::string& linkID) {
    return WriterSlot().Get() != nullptr ? LinkRoom::Free : CNetFactory::RoomOf(linkID);
}

std::shared_ptr<const LinkProgress> CDispatcher::ProgressOf(const std::string& linkID) {
    return WriterSlot().Get() != nullptr ? nullptr : CNetFactory::ProgressOf(linkID);
}

int CDispatcher::dispatcherOutWithoutTransaction(int, const char* linkID, const char*, std::uint32_t reqID,
                                                 ACE_Message_Block*& block, bool bCompress, unsigned int) {
    const int fault = CheckOutgoing(block, bCompress);
    return fault != ZVS_SUCCEED ? fault : WriteFrame(linkID, reqID, block);
}

int CDispatcher::dispatcherOutWithTransaction(std::uint32_t serviceID, int, const char* linkID, const char* transID,
                                              std::uint32_t reqID, ACE_Message_Block*& block, bool bCompress,
                                              unsigned int) {
    const int fault = CheckOutgoing(block, bCompress);
    if (fault != ZVS_SUCCEED) {
        return fault;
    }
    // The transaction is opened before the frame leaves, because the answer may be faster than this thread.
    TransactionTable::Instance().Open(TextOf(transID), serviceID);
    const int result = WriteFrame(linkID, reqID, block);
    if (result != ZVS_SUCCEED) {
        TransactionTable::Instance().Remove(TextOf(transID));
    }
    return result;
}

CCmd* CDispatcher::dispatcherSyncMsgOut(std::uint32_t serviceID, int, const char* linkID, const std::string& transID,
                                        std::uint32_t reqID, ACE_Message_Block* block, bool bCompress,
                                        unsigned int timeoutSeconds) {
    MessageBlockPtr owned(block);
    if (OnLinkThread()) {
        GVX_LOG_ERR("Synchronous send", "Refused on the thread that serves the links. ReqID[0x%04x]", reqID);
        return nullptr;
    }
    const unsigned int limitSeconds = timeoutSeconds != 0 ? timeoutSeconds : kSyncTimeoutSeconds;
    TransactionTable::Wait wait(transID, TextOf(linkID), reqID);
    if (!wait.Begun()) {
        GVX_LOG_ERR("Synchronous send", "Stopping, or nobody can wait for this transaction. ReqID[0x%04x] TransID[%s]",
                    reqID, transID.c_str());
        return nullptr;
    }
    int result = CheckOutgoing(block, bCompress);
    if (result == ZVS_SUCCEED) {
        ACE_Message_Block* frame = owned.release();
        result = WriteFrame(linkID, reqID, frame);
        owned.reset(frame);
    }
    if (result != ZVS_SUCCEED) {
        GVX_LOG_ERR_CODE("Synchronous send", result, "ReqID[0x%04x] did not leave. [link:%s]", reqID, TextOf(linkID));
        return nullptr;
    }
    std::unique_ptr<CCmd> answer = wait.Take(static_cast<std::int64_t>(limitSeconds) * 1000);
    if (answer == nullptr) {
        if (wait.LinkLost()) {
            GVX_LOG_ERR("Synchronous send", "The link closed before the answer. ReqID[0x%04x] TransID[%s] [link:%s]",
                        reqID, transID.c_str(), TextOf(linkID));
        } else {
            GVX_LOG_ERR("Synchronous send", "No answer within %u s. ReqID[0x%04x] TransID[%s] [link:%s]", limitSeconds,
                        reqID, transID.c_str(), TextOf(linkID));
        }
        return nullptr;
    }
    answer->SetServiceID(serviceID);
    return answer.release();
}

// The command gets a copy of the block: the sink may destroy a command that it refuses, and the caller's block must
// survive that.
int CDispatcher::dispatcherInWithoutTransaction(int netElemType, const char* linkID, std::uint16_t msgType,
                                                const char* transID, ACE_Message_Block*& block, unsigned int) {
    MessageBlockPtr copy(block != nullptr ? block->clone() : nullptr);
    std::unique_ptr<CCmd> cmd = MakeCommand(netElemType, TextOf(linkID), msgType, TextOf(transID));
    if (cmd == nullptr || (block != nullptr && copy == nullptr)) {
        return ZVS_ALLOC_MEMORY_ERROR;
    }
    cmd->SetMsgBlock(copy.release());
    cmd->SetFedIn(true);
    const int result = Route(std::move(cmd));
    if (result == ZVS_SUCCEED && block != nullptr) {
        block->release();
        block = nullptr;
    }
    return result;
}

int CDispatcher::FrameArrived(int netElemType, const std::string& linkID, ACE_Message_Block* block) {
    MessageBlockPtr owned(block);
    NssMsgHeader head;
    if (!ReadFrameHead(block, head)) {
        GVX_LOG_ERR("Dispatcher", "What arrived is no frame. [link:%s]", linkID.c_str());
        return ZVS_PARA_INVALID;
    }
    ShowToTap(true, linkID, *block);
    std::unique_ptr<CCmd> cmd;
    try {
        cmd = MakeCommand(netElemType, linkID.c_str(), head.usiMsgType, std::string(TransactionOf(head)));
    } catch (const std::bad_alloc&) {
        cmd = nullptr;  // its texts found no memory
    }
    if (cmd == nullptr) {
        GVX_LOG_ERR_CODE("Dispatcher", ZVS_ALLOC_MEMORY_ERROR, "Frame[0x%04x] is lost. [link:%s]", head.usiMsgType,
                         linkID.c_str());
        return ZVS_ALLOC_MEMORY_ERROR;
    }
    cmd->SetMsgBlock(owned.release());
    const int result = Route(std::move(cmd));
    GVX_DEBUG("Frame[0x%04x] in, result[%d]. [link:%s]", head.usiMsgType, result, linkID.c_str());
    return result;
}

}  // namespace BP
