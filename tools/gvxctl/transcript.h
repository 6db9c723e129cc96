#pragma once

#include "gvxctl/peer_set.h"

#include <cstdint>
#include <mutex>
#include <string>

namespace gvxctl {

// Lines on standard output, each led by the seconds since the beginning. Any thread.
class Transcript {
public:
    // `full`: frames with all of their head and body instead of a line.
    explicit Transcript(bool full);

    void Line(const std::string& text);
    void Frame(const PeerSet::Traffic& traffic);

private:
    bool m_full;
    std::int64_t m_begin;
    std::mutex m_mutex;  // keeps lines whole
};

}  // namespace gvxctl
