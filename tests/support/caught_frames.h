#pragma once

#include "base/fixed_text.h"
#include "bp/dispatcher.h"
#include "bp/service.h"
#include "nss/nss_msg.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

// A block that holds these bytes; the caller's.
inline ACE_Message_Block* BlockOf(const std::string& bytes) {
    auto* block = new ACE_Message_Block(bytes.size());
    block->copy(bytes.data(), bytes.size());
    return block;
}

// The service that this process is to the platform. One for all tests, as the connection manager keeps its first.
inline BP::IService* TestService() {
    struct Service : BP::IService {
        std::uint32_t GetServiceID() const override { return 7; }
    };
    static Service service;
    return &service;
}

// A frame on its way out.
struct CaughtFrame {
    std::string linkID;
    std::string bytes;

    NssMsgHeader Head() const {  // host order
        NssMsgHeader head{};
        std::memcpy(&head, bytes.data(), std::min(bytes.size(), sizeof(head)));
        NssSwapHeader(head);
        return head;
    }
    unsigned int Type() const { return Head().usiMsgType; }
    std::string Transaction() const { return gvx::TextOf(Head().szTransactionNo); }
    std::string Body() const { return bytes.size() < kNssHeaderBytes ? "short" : bytes.substr(kNssHeaderBytes); }
    // The value of the body's item of that tag.
    std::string Value(std::uint16_t tag) const {
        const std::string body = Body();
        NssBodyView item;
        return NssFindItem(body.data(), body.size(), tag, item) ? std::string(item.data, item.length) : "no such item";
    }
};

// Catches frames for a scope where they would enter their link. Any thread.
class CaughtFrames {
public:
    // What the other side does about a frame that was caught, on the sender's thread.
    using Peer = std::function<void(const CaughtFrame& frame)>;

    explicit CaughtFrames(Peer peer = {}) : m_peer(std::move(peer)) {
        BP::CDispatcher::SetWriter(
            [this](const std::string& linkID, ACE_Message_Block* block) { return Catch(linkID, block); });
    }
    ~CaughtFrames() { BP::CDispatcher::SetWriter({}); }
    CaughtFrames(const CaughtFrames&) = delete;
    CaughtFrames& operator=(const CaughtFrames&) = delete;

    // From now on the link answers with this code, and takes nothing unless that is 0.
    void AnswerWith(int code) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_code = code;
    }
    std::vector<CaughtFrame> All() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_frames;
    }
    // The same, and forgets them.
    std::vector<CaughtFrame> Take() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::exchange(m_frames, {});
    }
    std::size_t Count() const { return All().size(); }

private:
    int Catch(const std::string& linkID, ACE_Message_Block* block) {
        const CaughtFrame frame{linkID, std::string(block->rd_ptr(), block->length())};
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (m_code != 0) {
                return m_code;
            }
            m_frames.push_back(frame);
        }
        block->release();
        if (m_peer) {
            m_peer(frame);
        }
        return 0;
    }

    const Peer m_peer;
    mutable std::mutex m_mutex;
    int m_code = 0;                     // Guarded by m_mutex.
    std::vector<CaughtFrame> m_frames;  // Guarded by m_mutex.
};
