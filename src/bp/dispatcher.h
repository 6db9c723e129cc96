#pragma once

#include "bp/cmd.h"
#include "bp/net_factory.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace BP {

// The way of frames in and out. Any thread may call any operation.
//
// Out: a frame is written to the named link (bp/net_factory.h) and never waits for the peer: what does not fit
// in the link's bounded queue is refused. Every out operation takes the block over on success (result 0) and sets
// the reference null; on failure the block stays the caller's. Failures: ZVS_NET_SEND_ERROR for a link that does
// not exist or whose queue is full, ZVS_NULL_POINTER for a null block, ZVS_PARA_INVALID for a block that is no
// whole frame or for bCompress true, which no peer of this gateway understands.
struct CDispatcher {
    static constexpr unsigned int kSyncTimeoutSeconds = 5;

    static int dispatcherOutWithoutTransaction(int netElemType, const char* linkID, const char* transID,
                                               std::uint32_t reqID, ACE_Message_Block*& block, bool bCompress,
                                               unsigned int priority);

    // The same, and remembers the transaction as open for that service until RemoveTransaction, its answer or its
    // time-out.
    static int dispatcherOutWithTransaction(std::uint32_t serviceID, int netElemType, const char* linkID,
                                            const char* transID, std::uint32_t reqID, ACE_Message_Block*& block,
                                            bool bCompress, unsigned int priority);

    // Sends and waits at most timeoutSeconds for the response: the frame of type reqID + 0x9000 that carries the
    // transaction and comes by the same link; 0 means the limit of
    // kSyncTimeoutSeconds, since a wait without one could hold its thread for ever. The caller owns the returned
    // command; null for a failed send, a time-out, a close of the link or a stop. Takes the block over in every case.
    // On the link I/O thread, which would have to receive the answer, it is refused at once with null.
    static CCmd* dispatcherSyncMsgOut(std::uint32_t serviceID, int netElemType, const char* linkID,
                                      const std::string& transID, std::uint32_t reqID, ACE_Message_Block* block,
                                      bool bCompress, unsigned int timeoutSeconds);

    // Feeds a frame in as if it had come from that link; type and transaction are those given, whatever the block
    // holds, and a null block gives a command without a frame. 0 when the sink took it: the block is then taken over
    // and the reference null. Otherwise the block stays the caller's.
    static int dispatcherInWithoutTransaction(int netElemType, const char* linkID, std::uint16_t msgType,
                                              const char* transID, ACE_Message_Block*& block, unsigned int priority);

    // Where frames that come in go: responses that somebody waits for excepted. The sink owns the command. It
    // runs on the link I/O thread or on the thread that feeds a frame in; a nonzero result means refused. Set
    // before the first link opens; an empty function takes it away, and frames are then refused.
    using Sink = std::function<int(std::unique_ptr<CCmd> cmd)>;
    static void SetSink(Sink sink);

    // Where frames that go out are written, CNetFactory::Send unless set otherwise. The writer takes the block
    // over when it answers 0.
    using Writer = std::function<int(const std::string& linkID, ACE_Message_Block* block)>;
    static void SetWriter(Writer writer);
    // CNetFactory::RoomOf; a writer of one's own always has room.
    static LinkRoom RoomOf(const std::string& linkID);
    // CNetFactory::ProgressOf; null with a writer of one's own, which has written what it has taken.
    static std::shared_ptr<const LinkProgress> ProgressOf(const std::string& linkID);

    // Is shown every frame that a link has brought and every one that is about to be written, on the threads that do
    // so; it must not wait, nor keep the frame. Null takes it away; a call that has begun may then still run.
    using Tap = void (*)(bool in, const std::string& linkID, const ACE_Message_Block& frame);
    static void SetTap(Tap tap);

    // Entry for the link layer: a whole frame has arrived. Takes the block over in every case. The sink's answer,
    // or ZVS_PARA_INVALID for a block without a head.
    static int FrameArrived(int netElemType, const std::string& linkID, ACE_Message_Block* block);
};

// Open transactions by their text. Any thread.
struct CTransactionMgr {
    static void RemoveTransaction(const char* transID);
    static std::size_t OpenTransactions();
    // Forgets transactions older than their time limit (60 s) and returns how many there were.
    static std::size_t ExpireTransactions();
    // Ends every synchronous wait with null, now and from now on; Resume undoes it.
    static void StopWaiting();
    static void Resume();
};

}  // namespace BP
