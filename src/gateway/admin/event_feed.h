#pragma once

#include "base/periodic_thread.h"
#include "gateway/admin/status.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace gvx {

// Something that has changed between two looks at the gateway.
struct StatusEvent {
    const char* kind = "";  // device, stream, link, alarm, plugin, gateway
    const char* what = "";  // in words, such as "added"
    std::string subject;    // the device, the stream ...
    std::string text;       // more of it; may be empty
    bool bad = false;       // something is wrong from now on
};

// What has changed from one look to the next. What has come and gone between them is not seen.
std::vector<StatusEvent> CompareStatus(const GatewayStatus& before, const GatewayStatus& after);

// Looks at the gateway once a second and tells readers what has changed, as server-sent events (HTML Living Standard,
// 9.2). Each reader has a queue of its own, of kMaxQueuedBytes: one that does not keep up is dropped and counted, and
// delays nobody. Any thread.
class EventFeed {
public:
    static constexpr std::size_t kKept = 100;  // events for those who come later
    static constexpr std::size_t kMaxQueuedBytes = 128 * 1024;
    static constexpr std::size_t kMaxReaders = 128;
    static constexpr std::chrono::milliseconds kPeriod{1000};

    // One who reads. Made by EventFeed::Join; gone from the feed when it is destroyed.
    class Reader {
    public:
        ~Reader();
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;

        // Takes bytes, size at most. 0: there are none now; suspend has been called before any that come call resume.
        // -1: there are no more.
        long Read(char* buffer, std::size_t size);

    private:
        friend class EventFeed;

        Reader(EventFeed& feed, std::function<void()> suspend, std::function<void()> resume)
            : m_feed(feed), m_suspend(std::move(suspend)), m_resume(std::move(resume)) {}

        EventFeed& m_feed;
        const std::function<void()> m_suspend;
        const std::function<void()> m_resume;
        // Guarded by the feed's mutex.
        std::string m_queued;
        bool m_suspended = false;
        bool m_ended = false;
    };

    EventFeed();
    // Readers must be gone.
    ~EventFeed();
    EventFeed(const EventFeed&) = delete;
    EventFeed& operator=(const EventFeed&) = delete;

    // Starts the thread "StatusEvents", which calls collect, compares, and then calls tick. False with the reason.
    bool Start(std::function<GatewayStatus()> collect, std::function<void()> tick, std::string& reason);
    // Ends the thread and wakes every reader, for which there is no more.
    void Stop();

    // A reader that first gets the kept events behind the one of that identifier; all for an empty text, and for one of
    // another run, which counts anew. Null when there are too many readers, or the feed does not run. suspend and
    // resume are called with a lock held and must not call back.
    std::unique_ptr<Reader> Join(const std::string& lastId, std::function<void()> suspend,
                                 std::function<void()> resume);
    // The thread's last look; null before its first. Never changes once it is there.
    std::shared_ptr<const GatewayStatus> LastLook() const;

    std::uint64_t CountDropped() const;
    std::size_t CountReaders() const;

    // Gives events to all readers; the thread's work, and that of tests: of one thread at a time that has any. Without
    // memory for all of them it throws and gives none.
    void Publish(const std::vector<StatusEvent>& events) { Publish(events, nullptr); }

private:
    struct Kept {
        std::uint64_t id;
        std::string text;
    };

    void Turn();
    void Publish(const std::vector<StatusEvent>& events, std::shared_ptr<const GatewayStatus> look);
    void OfferLocked(Reader& reader, const std::string& text);

    std::function<GatewayStatus()> m_collect;
    std::function<void()> m_tick;
    const std::string m_run;      // no two runs of the gateway have the same
    int m_turnsSinceComment = 0;  // of the thread
    mutable std::mutex m_mutex;   // Guards all below. Outermost: resuming a reader takes a lock of the library.
    std::shared_ptr<const GatewayStatus> m_last;
    std::list<Kept> m_kept;
    std::list<Reader*> m_readers;
    std::uint64_t m_lastId = 0;
    std::uint64_t m_dropped = 0;
    bool m_stopped = true;
    PeriodicThread m_thread;
};

}  // namespace gvx
