#pragma once

#include "gvx_common/utility/gvx_device_trace.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Writes captures as Wireshark reads them (draft-ietf-opsawg-pcapng): one interface whose packets are single messages
// of a protocol, each with the name of its dissector and its ends (link type 252, "exported PDU"). So every message is
// read by itself, on whatever port it came and from wherever in a connection the capture begins, and the length of what
// was left out of one is told. Any thread.
namespace gvx {

struct PcapngPacket {
    const char* dissector = "";  // its name in Wireshark: "rtsp", "http", "rtp", "rtcp", "gvxnss"
    GvxTraceEnd from;            // zeros: left out
    GvxTraceEnd to;
    bool udp = false;
    bool outbound = false;
    std::int64_t wallUs = 0;  // since 1970
    const void* data = nullptr;
    std::size_t kept = 0;   // bytes of data
    std::size_t whole = 0;  // of the packet as it was, at least as many
    std::string_view comment;
};

// The head of a file: its section and its interface.
std::string PcapngHead(const std::string& interface, const std::string& application, const std::string& comment);
// How many bytes a packet will take.
std::size_t PcapngPacketBytes(const PcapngPacket& packet);
// Adds it; allocates nothing where bytes has that much room.
void AppendPcapngPacket(const PcapngPacket& packet, std::vector<char>& bytes);
// The end of a file: how many packets came, how many of them had no room, and why it ends.
std::string PcapngEnd(std::int64_t wallUs, std::uint64_t came, std::uint64_t lost, const std::string& comment);
// How many of the bytes, which are whole packets, fit into so many.
std::size_t PcapngFitting(const std::vector<char>& bytes, std::size_t room);

}  // namespace gvx
