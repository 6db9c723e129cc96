#include "gvx_common/ports/port_list_json.h"

#include "base/json_io.h"
#include "base/log.h"
#include "gvx_common/utility/gvx_utility.h"

namespace gvx {

namespace {

constexpr Json::ArrayIndex kMostPorts = 65535;

Json::Value PortArray(const std::list<std::uint32_t>& ports) {
    Json::Value array(Json::arrayValue);
    array.resize(0);
    for (const std::uint32_t port : ports) {
        array.append(Json::Value(Json::UInt{port}));
    }
    return array;
}

bool IsPort(const Json::Value& entry) {
    return entry.isInt() && CGvxUtility::IsPort(entry.asInt());
}

void ReadPorts(const Json::Value& array, std::list<std::uint32_t>& ports) {
    const Json::ArrayIndex offered = array.isArray() ? array.size() : 0;
    for (Json::ArrayIndex i = 0; i < offered && i < kMostPorts; ++i) {
        if (IsPort(array[i])) {
            ports.push_back(array[i].asUInt());
        }
    }
    if (ports.size() != offered) {
        GVX_LOG_WARN("Port list", "%zu of %u entries are no ports.", offered - ports.size(), offered);
    }
}

}  // namespace

std::string WritePortRequest(const PLUGIN_APPLY_PORT_REQ_DATA& data) {
    Json::Value body(Json::objectValue);
    body["ApplyPortNumber"] = Json::UInt{data.applyPortNumber};
    body["ApplyPortType"] = static_cast<int>(data.applyPortType);
    return WriteJson(body);
}

std::string WriteUsedPorts(const PLUGIN_SEND_PORT_DATA& data) {
    Json::Value body(Json::objectValue);
    body["TCPUsedPortlist"] = PortArray(data.tcpUsedPortlist);
    body["UDPUsedPortlist"] = PortArray(data.udpUsedPortlist);
    return WriteJson(body);
}

bool ReadPortReply(const char* text, std::size_t length, PLUGIN_APPLY_PORT_RSP_DATA& data) {
    data = PLUGIN_APPLY_PORT_RSP_DATA{};
    Json::Value body;
    if (!ParseJson(text, length, body, nullptr) || !body.isObject()) {
        return false;
    }
    const Json::Value& reply = body;
    ReadPorts(reply["ApplyPortReturnList"], data.applyPortReturnList);
    const long long type = JsonInt(reply, "ApplyPortReturnType", NULL_PROCOTOL_PORT);
    if (type == UDP_PROCOTOL_PORT || type == TCP_PROCOTOL_PORT) {
        data.applyPortReturnType = static_cast<PORT_PROCOTOL_TYPE>(type);
    }
    return true;
}

}  // namespace gvx
