#pragma once

#include "bp/cmd.h"
#include "bp/net_factory.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace gvx {

// Serves the events of all links, in the order in which they came, on a thread of its own. What an opening leads to may
// wait for the peer's answer: that part runs aside, on a thread that ends with it, and delays the further events of
// that link alone. Callbacks belong to the link I/O thread, Hold to any thread that takes a frame in; both wait for
// nobody.
//
// Nothing is kept for a link that has closed: frames of it that are still held are dropped.
//
// Answers leave by the main-service link, which its opened event makes known. Frames that such a link brings before
// are held back and follow, in order, as soon as LetFramesIn says so, or its event has been served.
class LinkEventThread {
public:
    // What a frame that was held back is handed to.
    using FrameTaker = std::function<int(BP::CCmd& cmd)>;

    // What is held back for one link at most; a frame beyond is refused.
    static constexpr std::size_t kMaxHeldBytes = 8u << 20;
    // From so many waiting events on, a link that opened and closed before it was its turn is passed over.
    static constexpr std::size_t kMaxEvents = 1024;
    // As many openings may wait for an answer at a time. A further one waits for its turn, and holds up nobody else; it
    // is given up when its link closes.
    static constexpr std::size_t kMaxAside = 64;
    // So many of a link's held frames are handed on before it is the turn of another event.
    static constexpr std::size_t kFramesInARow = 64;

    LinkEventThread() = default;
    ~LinkEventThread();
    LinkEventThread(const LinkEventThread&) = delete;
    LinkEventThread& operator=(const LinkEventThread&) = delete;

    // Starts the thread "LinkEvents". handlers run on it. False, with a log line, when there is none to be had.
    bool Start(BP::LinkEvents handlers, FrameTaker takeFrame);
    // Serves what is queued and ends the thread. After the link layer's stop, so that every close has been queued;
    // synchronous sends must have been stopped as well, or it waits for them. May be called again.
    void Stop();

    // What the link layer calls: they queue their event.
    BP::LinkEvents Callbacks();

    // Takes a frame over, result 0, when its link's opening has not been served yet. Refused, with the nonzero result
    // and a log line, when too much is held. False, and nothing has happened: the frame may go its way.
    bool Hold(std::unique_ptr<BP::CCmd>& cmd, int& result);

    // Events that wait, and since when, by the monotonic clock, the thread serves the one before them; 0 while it
    // serves none. Any thread.
    struct Progress {
        std::size_t waiting = 0;
        std::int64_t servingSinceMs = 0;
    };
    Progress GetProgress();

    // On this thread, from within an event: has work that may wait for the link's peer done aside. Elsewhere, and where
    // not one thread can be had, it is done at once.
    void Aside(std::function<void()> work);

    // On this thread, from within an opened event: answers reach the link from now on.
    void LetFramesIn();

private:
    struct Event {
        bool opened;
        std::string devName;
        int elementType;
        std::string linkID;
        std::string ip;
        unsigned int port;
    };
    // A main-service link whose opening waits to be served, or whose frames do.
    struct Entrance {
        std::size_t openings = 0;  // queued or under way
        std::size_t bytes = 0;
        std::deque<std::unique_ptr<BP::CCmd>> frames;
    };
    using Events = std::list<Event>;
    struct AsideThread {
        std::thread thread;
        bool ended = false;
    };
    struct WaitingWork {
        std::uint64_t turn;
        std::function<void()> work;
    };

    void QueueOpened(const Event& event);
    void QueueClosed(const std::string& linkID);
    bool PassOver(const std::string& closed);
    bool PutAside(const std::string& linkID, const std::function<void()>& work);
    bool StartAside(const std::string& linkID, const std::function<void()>& work);
    void RunAside(const std::string& linkID, const std::function<void()>& work);
    void StartWaiting(std::unique_lock<std::mutex>& lock);
    void JoinEnded(std::unique_lock<std::mutex>& lock);
    Events::iterator NextEvent();
    std::map<std::string, Entrance>::iterator NextToFeed();
    bool AtEnd() const;
    void Run();
    void Turn(std::unique_lock<std::mutex>& lock);
    void Serve(const Event& event);
    void FeedHeldFrames(const std::string& linkID);
    std::unique_ptr<BP::CCmd> TakeHeldFrame(const std::string& linkID);

    BP::LinkEvents m_handlers;
    FrameTaker m_takeFrame;
    std::thread m_thread;
    const Event* m_serving = nullptr;  // this thread only
    const Event* m_opening = nullptr;  // this thread only: the main-service opening whose frames still wait
    std::string m_lastFed;             // this thread only

    std::mutex m_mutex;  // Guards all below; nothing is called while it is held.
    std::condition_variable m_changed;
    Events m_events;
    std::int64_t m_servingSinceMs = 0;
    std::map<std::string, Events> m_closings;         // of open links, made when they open: a close is never lost
    std::map<std::string, AsideThread> m_aside;       // by the link whose further events wait for it
    std::map<std::string, WaitingWork> m_asideWaits;  // the same of those that wait for their turn
    bool m_someEnded = false;                         // of m_aside
    std::uint64_t m_turns = 0;
    std::uint64_t m_passedOver = 0;
    std::map<std::string, Entrance> m_entrances;  // by link identifier
    bool m_stopping = false;
};

}  // namespace gvx
