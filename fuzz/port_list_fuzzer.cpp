// What the main service answers to an application for ports. Only ports get into a pool, each one once, and what is
// read comes out again by the report of used ports.

#include "base/json_io.h"
#include "gvx_common/ports/port_list_json.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    PLUGIN_APPLY_PORT_RSP_DATA reply;
    if (!gvx::ReadPortReply(reinterpret_cast<const char*>(data), size, reply)) {
        Require(reply.applyPortReturnList.empty());
        return 0;
    }
    CUDPPortElement element;
    element.UpdatePort(reply.applyPortReturnList, false);
    PLUGIN_SEND_PORT_DATA used;
    std::uint32_t last = 0;
    for (std::uint32_t port = 0; element.AssignPort(port); last = port) {
        Require(port > last && port <= 65535);
    }
    used.udpUsedPortlist = element.GetUsedPortlist();
    const std::string text = gvx::WriteUsedPorts(used);
    Json::Value report;
    Require(gvx::ParseJson(text.data(), text.size(), report, nullptr));
    Require(report["TCPUsedPortlist"].isArray() && report["UDPUsedPortlist"].size() == used.udpUsedPortlist.size());
    return 0;
}
