#pragma once

#include "bp/cmd.h"
#include "bp/net_factory.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace gvx {

// Serves the events of all links, in the order in which they came, on a thread of its own: what a link's opening leads
// to may wait for a peer's answer, which the link I/O thread has to receive meanwhile. Callbacks belong to the link
// I/O thread, Hold to any thread that takes a frame in; both wait for nobody.
//
// Answers leave by the main-service link, which its opened event makes known. Frames that such a link brings before
// are held back and follow, in order, as soon as LetFramesIn says so, or its event has been served.
class LinkEventThread {
public:
    // What a frame that was held back is handed to.
    using FrameTaker = std::function<int(BP::CCmd& cmd)>;

    // What is held back for one link at most; a frame beyond is refused.
    static constexpr std::size_t kMaxHeldBytes = 8u << 20;

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
        std::vector<std::unique_ptr<BP::CCmd>> frames;
    };

    void Queue(Event event);
    void Run();
    void Serve(const Event& event);
    void FeedHeldFrames(const std::string& linkID);
    bool TakeHeldFrames(const std::string& linkID, std::vector<std::unique_ptr<BP::CCmd>>& frames);

    BP::LinkEvents m_handlers;
    FrameTaker m_takeFrame;
    std::thread m_thread;
    const Event* m_opening = nullptr;  // this thread only: the main-service opening whose frames still wait

    std::mutex m_mutex;  // Guards all below; nothing is called while it is held.
    std::condition_variable m_changed;
    std::deque<Event> m_events;
    std::map<std::string, Entrance> m_entrances;  // by link identifier
    bool m_stopping = false;
};

}  // namespace gvx
