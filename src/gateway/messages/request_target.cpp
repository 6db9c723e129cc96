#include "gateway/messages/request_target.h"

#include "base/cbb_xml.h"
#include "base/json_io.h"
#include "nss/nss_msg.h"

#include <ace/Message_Block.h>

#include <algorithm>

namespace gvx {

namespace {

RequestTarget Malformed(std::string reason) {
    RequestTarget target;
    target.malformed = true;
    target.reason = std::move(reason);
    return target;
}

RequestTarget ForDevice(const std::string& device) {
    if (!device.empty() && !IsCode(device)) {
        return Malformed("DevCode is no identifier of 1 to 32 characters.");
    }
    RequestTarget target;
    target.device = device;
    return target;
}

RequestTarget FromXml(const NssBodyView& text) {
    CBB::CXml xml;
    if (!xml.Parse(text.data, text.length)) {
        return Malformed("The XML body is not well formed.");
    }
    if (!xml.FindElem("Content") || !xml.IntoElem() || !xml.FindElem("DevCode")) {
        return {};
    }
    const char* device = xml.GetElemValue();
    return ForDevice(device == nullptr ? "" : device);
}

RequestTarget FromJson(const NssBodyView& text) {
    Json::Value body;
    std::string error;
    if (!ParseJson(text.data, text.length, body, &error)) {
        return Malformed("The JSON body is not well formed: " + error);
    }
    if (!body.isObject()) {
        return Malformed("The JSON body is no object.");
    }
    if (body.isMember("DevCode") && !body["DevCode"].isString()) {
        return Malformed("DevCode is no text.");
    }
    return ForDevice(JsonText(body, "DevCode"));
}

}  // namespace

bool IsCode(const std::string& text) {
    return !text.empty() && text.size() <= kMaxCodeLength &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return c > 0x20 && c != 0x7F; });
}

RequestTarget ReadRequestTarget(const ACE_Message_Block& frame) {
    NssBodyView body;
    if (!NssBody(&frame, body)) {
        return Malformed("The frame is shorter than its length says.");
    }
    if (body.length > kMaxRequestBodyBytes) {
        return Malformed("The body is too long.");
    }
    NssBodyView text;
    if (NssFindItem(body.data, body.length, NSS_TAG_XML_CONTENT, text)) {
        return FromXml(text);
    }
    if (NssFindItem(body.data, body.length, NSS_TAG_JSON_CONTENT, text)) {
        return FromJson(text);
    }
    return {};
}

}  // namespace gvx
