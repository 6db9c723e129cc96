#pragma once

#include "gvxctl/frame.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

namespace gvxctl {

// Frames that have come in and that nobody has taken yet, in the order of their arrival. Keeps the newest 100,000. Any
// thread.
class Inbox {
public:
    enum class Result { Taken, Nothing, Other };
    using Test = std::function<bool(const Frame& frame)>;

    void Add(const std::string& linkId, const Frame& frame);

    // Waits for a frame of that link that passes the test and takes it out. With `next` the first frame of the link
    // that is there decides: Other when it does not pass, and it stays.
    Result Take(const std::string& linkId, const Test& test, bool next, int withinMs);

    void Forget(const std::string& linkId);

    // What waits there from that link, one line for all of it.
    std::string Waiting(const std::string& linkId) const;

private:
    struct Entry {
        std::string linkId;
        Frame frame;
    };
    Result Look(const std::string& linkId, const Test& test, bool next);

    mutable std::mutex m_mutex;  // guards m_entries
    std::condition_variable m_came;
    std::deque<Entry> m_entries;
};

}  // namespace gvxctl
