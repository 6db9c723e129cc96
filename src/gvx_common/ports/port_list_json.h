#pragma once

#include "gvx_common/ports/port_element.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>

// The JSON texts of the port exchange (docs/nss-messages.md), which stand bare behind a frame's head. Any thread.

struct PLUGIN_APPLY_PORT_REQ_DATA {
    std::uint32_t applyPortNumber;
    PORT_PROCOTOL_TYPE applyPortType;
};

struct PLUGIN_APPLY_PORT_RSP_DATA {
    std::list<std::uint32_t> applyPortReturnList;
    PORT_PROCOTOL_TYPE applyPortReturnType = NULL_PROCOTOL_PORT;
};

struct PLUGIN_SEND_PORT_DATA {
    std::list<std::uint32_t> tcpUsedPortlist;
    std::list<std::uint32_t> udpUsedPortlist;
};

namespace gvx {

std::string WritePortRequest(const PLUGIN_APPLY_PORT_REQ_DATA& data);
// An empty list is written as an empty array.
std::string WriteUsedPorts(const PLUGIN_SEND_PORT_DATA& data);
// Reads what comes from a peer. False for a text that is no JSON object. Entries that are no port, 1 to 65535, are
// passed over with a log line, and so is everything behind as many entries as there are ports; an unknown type is
// NULL_PROCOTOL_PORT.
bool ReadPortReply(const char* text, std::size_t length, PLUGIN_APPLY_PORT_RSP_DATA& data);

}  // namespace gvx
