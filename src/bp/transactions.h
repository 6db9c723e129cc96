#pragma once

#include "bp/cmd.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace BP {

// The open transactions of this process and those that a thread waits for. Any thread.
class TransactionTable {
public:
    static TransactionTable& Instance();

    // Remembers a transaction as open for a service; an empty text is none. One that is open already is renewed.
    void Open(std::string transID, std::uint32_t serviceID);
    void Remove(std::string_view transID);
    std::size_t CountOpen();
    std::size_t Expire();

    // One thread's wait for the response to one request: of its type, its transaction and its link. Begins before the
    // request leaves, so that an early answer is not missed, and ends with the object.
    class Wait {
    public:
        // linkID: where the request goes. reqID: its type.
        Wait(std::string transID, std::string linkID, std::uint32_t reqID);
        ~Wait();
        Wait(const Wait&) = delete;
        Wait& operator=(const Wait&) = delete;

        // False when somebody else waits for the same text, for an empty text, and after StopWaiting.
        bool Begun() const { return m_begun; }
        // Null for a time-out, a close of the link or a stop.
        std::unique_ptr<CCmd> Take(std::int64_t timeoutMs);
        // After Take: whether the link has closed meanwhile.
        bool LinkLost() const { return m_linkLost; }

    private:
        friend class TransactionTable;
        TransactionTable& m_table;
        const std::string m_transID;
        const std::string m_linkID;
        const std::uint32_t m_answerID;
        bool m_begun = false;
        bool m_linkLost = false;  // Guarded by the table's mutex until Take has returned.
        std::condition_variable m_changed;
        std::unique_ptr<CCmd> m_answer;  // Guarded by the table's mutex.
    };

    // Hands a response to the thread that waits for it. When there is none, or it has its answer already, or waits for
    // another type or from another link, the command is handed back. Ends the open transaction of that text in any
    // case.
    std::unique_ptr<CCmd> Deliver(std::unique_ptr<CCmd> response);

    // A link has closed: its answers can come no more, and whoever waits for one of them is let go.
    void LinkClosed(const std::string& linkID);

    void StopWaiting();
    void Resume();

private:
    struct OpenTransaction {
        std::uint32_t serviceID;
        std::int64_t openedMs;
    };

    std::mutex m_mutex;
    std::map<std::string, OpenTransaction, std::less<>> m_open;  // Guarded by m_mutex.
    std::map<std::string, Wait*, std::less<>> m_waits;           // Guarded by m_mutex.
    bool m_stopped = false;                                      // Guarded by m_mutex.
};

}  // namespace BP
