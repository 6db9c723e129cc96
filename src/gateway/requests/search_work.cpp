#include "gateway/requests/search_work.h"

#include "base/fixed_text.h"
#include "base/json_io.h"
#include "base/log.h"
#include "bp/session.h"
#include "gateway/messages/answer.h"
#include "gateway/messages/request_body.h"
#include "gateway/plugins/plugin_guard.h"
#include "gateway/requests/gateway_context.h"

#include <arpa/inet.h>

namespace gvx {

namespace {

constexpr Json::ArrayIndex kMostRanges = 64;

Result Invalid(const char* reason) {
    return {ZVS_PARA_INVALID, reason};
}

Result ReadRange(const Json::Value& object, DISCOVERY_IP_INFO& range) {
    constexpr std::uint32_t kSegment = 0xFFFFFF00;
    in_addr first{};
    in_addr last{};
    const std::string start = object.isObject() ? JsonText(object, "Start") : std::string();
    const std::string end = object.isObject() ? JsonText(object, "End", start) : std::string();
    if (inet_pton(AF_INET, start.c_str(), &first) != 1 || inet_pton(AF_INET, end.c_str(), &last) != 1 ||
        (ntohl(first.s_addr) & kSegment) != (ntohl(last.s_addr) & kSegment) ||
        ntohl(first.s_addr) > ntohl(last.s_addr)) {
        return Invalid("A range has no Start and End, IPv4 addresses that differ in their last number alone.");
    }
    const long long port = JsonInt(object, "Port", 0);
    if (port < 0 || port > 65535) {
        return Invalid("The Port of a range is not one of 0 to 65535.");
    }
    range.iPort = static_cast<int>(port);
    return PutText(range.strStartIp, start) && PutText(range.strEndIp, end) ? Result{}
                                                                            : Invalid("A range is too long.");
}

Result ReadSearchRequest(const Json::Value& body, CDiscoveryDeviceInfo& info) {
    info.strServerCode = JsonText(body, "ServerCode");
    info.enProtocolType = static_cast<enDevProtocolType>(JsonInt(body, "Protocol", 0));
    const Json::Value& ranges = body["Ranges"];
    const Json::Value& added = body["Added"];
    if ((!ranges.isNull() && !ranges.isArray()) || ranges.size() > kMostRanges) {
        return Invalid("Ranges is no list of at most 64.");
    }
    if (!added.isNull() && !added.isArray()) {
        return Invalid("Added is no list.");
    }
    for (const Json::Value& object : ranges) {
        DISCOVERY_IP_INFO range{};
        if (Result read = ReadRange(object, range); read.Failed()) {
            return read;
        }
        info.DiscDevIpRangeList.push_back(range);
    }
    for (const Json::Value& device : added) {
        if (!device.isString()) {
            return Invalid("An entry of Added is no text.");
        }
        info.AddedDevList.push_back(device.asString());
    }
    return {};
}

// The plug-in that a request names, with the request's body.
Result FindSearcher(GatewayContext& context, const BP::CCmd& cmd, Json::Value& body, LoadedPlugin*& plugin) {
    if (!ReadJsonObject(cmd, body)) {
        return Invalid("There is no JSON body.");
    }
    const std::string name = JsonText(body, "PluginName");
    plugin = context.plugins.Find(name);
    return plugin != nullptr ? Result{}
                             : Result{ZVS_GVX_PLUGIN_NOT_EXIST,
                                      "There is no plug-in '" + name + "', but " + context.plugins.NameList() + "."};
}

int Answer(const BP::CCmd& cmd, const Json::Value& body, const Result& result) {
    Json::Value answer(Json::objectValue);
    answer["PluginName"] = body.isObject() ? JsonText(body, "PluginName") : std::string();
    if (result.Failed()) {
        GVX_LOG_ERR_CODE("Search", result.code, "cmd[0x%04x] %s", cmd.GetReqID(), result.reason.c_str());
        RefuseJson(cmd, std::move(answer), result);
    } else {
        AnswerJson(cmd, answer, ZVS_SUCCEED);
    }
    return result.code;
}

}  // namespace

int StartSearch(GatewayContext& context, BP::CGvxSessionBase& /*session*/, const BP::CCmd& cmd) {
    Json::Value body;
    LoadedPlugin* plugin = nullptr;
    CDiscoveryDeviceInfo info;
    Result result = FindSearcher(context, cmd, body, plugin);
    if (!result.Failed()) {
        result = ReadSearchRequest(body, info);
    }
    if (!result.Failed()) {
        info.strTransID = cmd.GetTransID();
        info.strSCULinkID = cmd.GetNetLinkID();
        std::string said;
        const int code = CallPlugin(
            plugin->Name(), "StartSearchDevice", "", [&] { return plugin->Sdk().StartSearchDevice(&info); }, &said);
        result = code == 0 ? Result{} : Failure(code, "", said);
    }
    return Answer(cmd, body, result);
}

int StopSearch(GatewayContext& context, BP::CGvxSessionBase& /*session*/, const BP::CCmd& cmd) {
    Json::Value body;
    LoadedPlugin* plugin = nullptr;
    Result result = FindSearcher(context, cmd, body, plugin);
    if (!result.Failed()) {
        CallPlugin(plugin->Name(), "StopSearchDevice", "", [plugin] {
            plugin->Sdk().StopSearchDevice();
            return 0;
        });
    }
    return Answer(cmd, body, result);
}

}  // namespace gvx
