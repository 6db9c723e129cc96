#include "gvxctl/port_service.h"

#include "base/json_io.h"
#include "base/zvs_error.h"
#include "nss/nss_msg_type.h"

#include <json/value.h>

#include <algorithm>

namespace gvxctl {
namespace {

constexpr long long kUdp = 1;
constexpr long long kTcp = 2;

bool ParsePort(const std::string& text, std::uint16_t& port) {
    if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    const unsigned long number = std::stoul(text);
    port = static_cast<std::uint16_t>(number);
    return number >= 1 && number <= 65535;
}

bool ReadBody(const Frame& frame, Json::Value& body) {
    return gvx::ParseJson(frame.body.data(), frame.body.size(), body, nullptr) && body.isObject();
}

std::set<unsigned> ReadPorts(const Json::Value& body, const char* name) {
    std::set<unsigned> ports;
    const Json::Value& list = body[name];
    if (list.isArray()) {
        for (const Json::Value& port : list) {
            if (port.isUInt()) {
                ports.insert(port.asUInt());
            }
        }
    }
    return ports;
}

}  // namespace

bool ParsePortRange(const std::string& text, PortRange& range) {
    const std::size_t dash = text.find('-');
    PortRange parsed;
    if (!ParsePort(text.substr(0, dash), parsed.min) ||
        !ParsePort(dash == std::string::npos ? text : text.substr(dash + 1), parsed.max) || parsed.max < parsed.min) {
        return false;
    }
    range = parsed;
    return true;
}

PortService::Pool::Pool(const PortRange& range, unsigned step) {
    for (unsigned port = range.min; port != 0 && port + step - 1 <= range.max; port += step) {
        ports.push_back(port);
    }
}

std::vector<unsigned> PortService::Pool::Take(long long count) {
    std::vector<unsigned> given;
    for (std::size_t seen = 0; seen < ports.size() && static_cast<long long>(given.size()) < count; ++seen) {
        const unsigned port = ports[next];
        next = (next + 1) % ports.size();
        if (taken.insert(port).second) {
            given.push_back(port);
        }
    }
    return given;
}

PortService::PortService(const PortRanges& ranges) : m_udp(ranges.udp, 2), m_tcp(ranges.tcp, 1) {}

bool PortService::Serves(std::uint16_t type) {
    return type == NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ || type == NSS_PLUGIN_SEND_PORTLIST_DATA_REQ;
}

FrameSpec PortService::Answer(const Frame& request) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return request.Type() == NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ ? HandOut(request) : NoteUsed(request);
}

FrameSpec PortService::HandOut(const Frame& request) {
    Json::Value body;
    const long long type = ReadBody(request, body) ? gvx::JsonInt(body, "ApplyPortType") : 0;
    const long long count = gvx::JsonInt(body, "ApplyPortNumber");
    if ((type != kUdp && type != kTcp) || count < 1) {
        return ResponseTo(request, static_cast<std::uint32_t>(ZVS_PARA_INVALID));
    }
    Json::Value list(Json::arrayValue);
    for (const unsigned port : (type == kUdp ? m_udp : m_tcp).Take(count)) {
        list.append(port);
    }
    FrameSpec answer = ResponseTo(request, list.empty() ? static_cast<std::uint32_t>(ZVS_FAIL) : 0u);
    Json::Value told;
    told["ApplyPortReturnList"] = list;
    told["ApplyPortReturnType"] = static_cast<Json::Value::Int64>(type);
    answer.body = gvx::WriteJson(told);
    return answer;
}

FrameSpec PortService::NoteUsed(const Frame& request) {
    Json::Value body;
    if (!ReadBody(request, body)) {
        return ResponseTo(request, static_cast<std::uint32_t>(ZVS_PARA_INVALID));
    }
    m_udp.taken = ReadPorts(body, "UDPUsedPortlist");
    m_tcp.taken = ReadPorts(body, "TCPUsedPortlist");
    return ResponseTo(request, 0);
}

}  // namespace gvxctl
