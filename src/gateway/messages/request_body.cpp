#include "gateway/messages/request_body.h"

#include "base/cbb_xml.h"
#include "base/json_io.h"
#include "nss/nss_msg.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <utility>

namespace gvx {

namespace {

RequestTarget Malformed(std::string reason) {
    RequestTarget target;
    target.malformed = true;
    target.reason = std::move(reason);
    return target;
}

RequestTarget ForDevice(const std::string& device, std::shared_ptr<ParsedBody> body) {
    if (!device.empty() && !IsCode(device)) {
        return Malformed("DevCode is no identifier of 1 to 32 characters.");
    }
    RequestTarget target;
    target.device = device;
    target.body = std::move(body);
    return target;
}

RequestTarget FromXml(const NssBodyView& text) {
    auto body = std::make_shared<ParsedBody>();
    body->textBytes = text.length;
    body->xml = std::make_unique<CBB::CXml>();
    CBB::CXml& xml = *body->xml;
    if (!xml.Parse(text.data, text.length)) {
        return Malformed("The XML body is not well formed.");
    }
    const bool named = xml.FindElem("Content") && xml.IntoElem() && xml.FindElem("DevCode");
    const std::string device = named ? xml.GetElemValue() : "";
    return ForDevice(device, std::move(body));
}

RequestTarget FromJson(const NssBodyView& text) {
    auto body = std::make_shared<ParsedBody>();
    body->textBytes = text.length;
    body->json = std::make_unique<Json::Value>();
    Json::Value& json = *body->json;
    std::string error;
    if (!ParseJson(text.data, text.length, json, &error)) {
        return Malformed("The JSON body is not well formed: " + error);
    }
    if (!json.isObject()) {
        return Malformed("The JSON body is no object.");
    }
    if (json.isMember("DevCode") && !json["DevCode"].isString()) {
        return Malformed("DevCode is no text.");
    }
    const std::string device = JsonText(json, "DevCode");
    return ForDevice(device, std::move(body));
}

std::shared_ptr<ParsedBody> ParsedWith(const BP::CCmd& cmd) {
    return std::dynamic_pointer_cast<ParsedBody>(cmd.GetAttachment());
}

bool FindText(const BP::CCmd& cmd, std::uint16_t tag, NssBodyView& text) {
    NssBodyView body;
    return cmd.GetMsgBlock() != nullptr && NssBody(cmd.GetMsgBlock(), body) && body.length <= kMaxRequestBodyBytes &&
           NssFindItem(body.data, body.length, tag, text);
}

}  // namespace

ParsedBody::~ParsedBody() = default;

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

std::unique_ptr<CBB::CXml> ReadXmlContent(const BP::CCmd& cmd) {
    const std::shared_ptr<ParsedBody> parsed = ParsedWith(cmd);
    std::unique_ptr<CBB::CXml> xml = parsed == nullptr ? nullptr : std::move(parsed->xml);
    if (xml != nullptr) {
        xml->Rewind();
    } else {
        NssBodyView text;
        xml = std::make_unique<CBB::CXml>();
        if (!FindText(cmd, NSS_TAG_XML_CONTENT, text) || !xml->Parse(text.data, text.length)) {
            return nullptr;
        }
    }
    return xml->FindElem("Content") && xml->IntoElem() ? std::move(xml) : nullptr;
}

std::string XmlText(CBB::CXml& xml, const char* name) {
    const char* value = xml.FindFirstElem(name) ? xml.GetElemValue() : nullptr;
    return value == nullptr ? std::string() : std::string(value);
}

bool ReadJsonObject(const BP::CCmd& cmd, Json::Value& body) {
    const std::shared_ptr<ParsedBody> parsed = ParsedWith(cmd);
    if (parsed != nullptr && parsed->json != nullptr) {
        body.swap(*parsed->json);
        parsed->json = nullptr;
        return true;
    }
    NssBodyView text;
    return FindText(cmd, NSS_TAG_JSON_CONTENT, text) && ParseJson(text.data, text.length, body, nullptr) &&
           body.isObject();
}

std::optional<std::uint32_t> ResponseCode(const BP::CCmd& cmd) {
    CNssMsgBase head;
    if (cmd.GetMsgBlock() == nullptr || head.decode(cmd.GetMsgBlock()) != 0) {
        return std::nullopt;
    }
    return head.GetHeader().uiRspCode;
}

}  // namespace gvx
