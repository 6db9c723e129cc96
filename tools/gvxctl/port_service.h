#pragma once

#include "gvxctl/frame.h"

#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace gvxctl {

struct PortRange {
    std::uint16_t min = 0;
    std::uint16_t max = 0;
};

// "40000-40100", or one port alone. False for anything else, for port 0 and for a range that runs backwards.
bool ParsePortRange(const std::string& text, PortRange& range);

struct PortRanges {
    PortRange udp{30000, 30999};
    PortRange tcp{31000, 31999};
};

// The main service's side of the exchange of media ports: hands out ports of its ranges on
// NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ and learns from NSS_PLUGIN_SEND_PORTLIST_DATA_REQ which of them are in use. Both
// bodies are JSON text without an item around it. Any thread.
//
// UDP ports go out in steps of two, so that the port behind each is free for its companion. A port goes out once until
// a report comes in; a report then says which are taken, and the search goes on behind the port given last.
class PortService {
public:
    explicit PortService(const PortRanges& ranges);

    static bool Serves(std::uint16_t type);
    // The answer to one of the two requests: fewer ports than asked for when there are not enough, ZVS_FAIL when there
    // is none, ZVS_PARA_INVALID for a body that cannot be read.
    FrameSpec Answer(const Frame& request);

private:
    struct Pool {
        Pool(const PortRange& range, unsigned step);
        std::vector<unsigned> Take(long long count);

        std::vector<unsigned> ports;
        std::set<unsigned> taken;
        std::size_t next = 0;
    };
    FrameSpec HandOut(const Frame& request);
    FrameSpec NoteUsed(const Frame& request);

    std::mutex m_mutex;  // guards both pools
    Pool m_udp;
    Pool m_tcp;
};

}  // namespace gvxctl
