#include "gvxctl/requests.h"

#include "base/cbb_xml.h"
#include "base/json_io.h"
#include "base/zvs_error.h"
#include "gvx_common/records/stream_param.h"
#include "gvxctl/frame_text.h"
#include "gvxctl/terminal.h"
#include "nss/nss_msg_type.h"

#include <cstdio>

namespace gvxctl {
namespace {

void AddLenses(CBB::CXml& xml, const DeviceSpec& spec) {
    xml.AddElem("LensList");
    xml.IntoElem();
    int channel = 0;
    for (const std::string& lens : spec.lenses) {
        xml.AddElem("Lens");
        xml.IntoElem();
        xml.AddElem("LensCode", lens.c_str());
        xml.AddElem("Channel", std::to_string(channel++).c_str());
        xml.OutOfElem();
    }
    xml.OutOfElem();
}

std::string DeviceBody(const DeviceSpec& spec) {
    CBB::CXml xml;
    xml.AddDeclaration("1.0", "UTF-8");
    xml.AddElem("Content");
    xml.IntoElem();
    xml.AddElem("DevCode", spec.devCode.c_str());
    xml.AddElem("PluginName", spec.plugin.c_str());
    xml.AddElem("FormType", std::to_string(spec.formType).c_str());
    xml.AddElem("IP", spec.ip.c_str());
    xml.AddElem("Port", std::to_string(spec.port).c_str());
    xml.AddElem("UserName", spec.user.c_str());
    xml.AddElem("Password", spec.password.c_str());
    xml.AddElem("Model", spec.model.c_str());
    xml.AddElem("Extend", spec.extend.c_str());
    if (!spec.lenses.empty()) {
        AddLenses(xml, spec);
    }
    return xml.ToString();
}

std::string DevCodeBody(const std::string& devCode) {
    CBB::CXml xml;
    xml.AddDeclaration("1.0", "UTF-8");
    xml.AddElem("Content");
    xml.IntoElem();
    xml.AddElem("DevCode", devCode.c_str());
    return xml.ToString();
}

Json::Value StreamIdentity(const StreamSpec& spec) {
    Json::Value body;
    body["DevCode"] = spec.devCode;
    if (!spec.lensCode.empty()) {
        body["LensCode"] = spec.lensCode;
    }
    body["ServiceID"] = spec.serviceId;
    return body;
}

Json::Value StartBody(const StreamSpec& spec) {
    Json::Value body = StreamIdentity(spec);
    if (spec.service == 0) {
        body["StreamType"] = spec.streamType;
    }
    body["Protocol"] = spec.tcp ? 2 : 1;
    body["DstIP"] = spec.video.ip;
    if (spec.service != 0) {
        body["ServiceType"] = spec.service;
    }
    if (spec.service == SERVICE_TYPE_PU_PLAYBACK || spec.service == SERVICE_TYPE_PU_DOWNLOAD) {
        body["ContentID"] = spec.content;
        body["StartTime"] = spec.from;
        body["EndTime"] = spec.to;
    }
    body["DstVideoPort"] = spec.video.port;
    if (spec.audioPort != 0) {
        body["DstAudioPort"] = spec.audioPort;
    }
    body["Audio"] = spec.audio;
    body["Extension"] = spec.extension;
    if (spec.metadata) {
        body["Metadata"] = true;
        body["DstMetadataPort"] = spec.metadataPort;
    }
    return body;
}

}  // namespace

bool SendJson(Platform& platform, std::uint16_t type, const Json::Value& body, Response& response, std::string& error) {
    return platform.Request(type, NSS_TAG_JSON_CONTENT, gvx::WriteJson(body), response, error);
}

bool AddDevice(Platform& platform, const DeviceSpec& spec, Response& response, std::string& error) {
    return platform.Request(NSS_ADD_MAIN_DEV_REQ, NSS_TAG_XML_CONTENT, DeviceBody(spec), response, error);
}

bool DeleteDevice(Platform& platform, const std::string& devCode, Response& response, std::string& error) {
    return platform.Request(NSS_DEL_MAIN_DEV_REQ, NSS_TAG_XML_CONTENT, DevCodeBody(devCode), response, error);
}

bool StartStream(Platform& platform, const StreamSpec& spec, Response& response, std::string& error) {
    return SendJson(platform, NSS_START_STREAM_REQ, StartBody(spec), response, error);
}

bool StopStream(Platform& platform, const StreamSpec& spec, Response& response, std::string& error) {
    return SendJson(platform, NSS_STOP_STREAM_REQ, StreamIdentity(spec), response, error);
}

bool ControlStream(Platform& platform, const StreamSpec& spec, const StreamControl& control, Response& response,
                   std::string& error) {
    Json::Value body = StreamIdentity(spec);
    body["Command"] = control.command;
    body["Speed"] = control.speed;
    body["Position"] = control.position;
    return SendJson(platform, NSS_STREAM_CTRL_REQ, body, response, error);
}

bool RequestIFrame(Platform& platform, const StreamSpec& spec, Response& response, std::string& error) {
    return SendJson(platform, NSS_GET_IFRAME_REQ, StreamIdentity(spec), response, error);
}

Json::Value JsonBody(const Response& response) {
    const std::string text = response.Json();
    Json::Value body;
    return gvx::ParseJson(text.data(), text.size(), body, nullptr) ? body : Json::Value();
}

SentCounts SentCountsOf(const Response& stopResponse) {
    const Json::Value body = JsonBody(stopResponse);
    SentCounts counts;
    if (body.isObject()) {
        counts.videoFrames = gvx::JsonInt(body, "VideoFrames", -1);
        counts.videoPackets = gvx::JsonInt(body, "VideoPackets", -1);
        counts.audioPackets = gvx::JsonInt(body, "AudioPackets", -1);
        counts.metadataPackets = gvx::JsonInt(body, "MetadataPackets", -1);
        counts.dropped = gvx::JsonInt(body, "Dropped", -1);
        counts.bytes = gvx::JsonInt(body, "Bytes", -1);
    }
    return counts;
}

std::string RefusalText(const Response& response) {
    const int code = static_cast<int>(response.code);
    CBB::CXml xml;
    std::string reason = gvx::JsonText(JsonBody(response), "Reason");
    if (reason.empty() && xml.Parse(response.Xml().c_str()) && xml.FindElem("Content/Reason")) {
        reason = xml.GetElemValue();
    }
    const std::string name = ZvsErrorName(code);
    return "refused, " + (name == "ZVS_UNKNOWN" ? CodeText(response.code) : name) + ": " +
           Printable(reason.empty() ? ZvsErrorText(code) : reason);
}

std::string DescribeResponse(const Response& response) {
    const int code = static_cast<int>(response.code);
    char head[256];
    std::snprintf(head, sizeof head, "%s -> %s: code %d %s, %.1f ms", NssMsgTypeName(response.requestType),
                  NssMsgTypeName(response.frame.Type()), code, ZvsErrorName(code), response.elapsedMs);
    const std::string body = BodyText(response.frame);
    return body.empty() ? head : std::string(head) + "\n    " + body;
}

Json::Value ResponseToJson(const Response& response) {
    const int code = static_cast<int>(response.code);
    Json::Value value;
    value["request"] = NssMsgTypeName(response.requestType);
    value["response"] = NssMsgTypeName(response.frame.Type());
    value["code"] = code;
    value["codeName"] = ZvsErrorName(code);
    value["elapsedMs"] = response.elapsedMs;
    const Json::Value body = JsonBody(response);
    if (!body.isNull()) {
        value["body"] = body;
    } else if (!response.Xml().empty()) {
        value["body"] = response.Xml();
    }
    return value;
}

}  // namespace gvxctl
