#include "gateway/messages/request_body.h"

#include "base/cbb_xml.h"
#include "base/json_io.h"
#include "base/text_member.h"
#include "nss/nss_msg.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <utility>

namespace gvx {

namespace {

RequestTarget Malformed(std::string reason) {
    RequestTarget target;
    target.malformed = true;
    target.reason = std::move(reason);
    return target;
}

RequestTarget ForDevice(const TextMember& code, const char* form) {
    RequestTarget target;
    switch (code.state) {
        case TextMember::State::Malformed:
            return Malformed(std::string("The ") + form + " body is not well formed: " + code.fault + ".");
        case TextMember::State::NoText:
            return Malformed("DevCode is no text.");
        case TextMember::State::Absent:
            return target;
        case TextMember::State::Found:
            break;
    }
    if (!code.text.empty() && !IsCode(code.text)) {
        return Malformed("DevCode is no identifier of 1 to 32 characters.");
    }
    target.device = code.text;
    return target;
}

bool FindText(const BP::CCmd& cmd, std::uint16_t tag, NssBodyView& text) {
    NssBodyView body;
    return cmd.GetMsgBlock() != nullptr && NssBody(cmd.GetMsgBlock(), body) && body.length <= kMaxRequestBodyBytes &&
           NssFindItem(body.data, body.length, tag, text);
}

}  // namespace

bool ReadNumber(const std::string& text, long long least, long long most, long long& value) {
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno == ERANGE || number < least || number > most) {
        return false;
    }
    value = number;
    return true;
}

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
        return ForDevice(FindXmlMember(text.data, text.length, "Content", "DevCode"), "XML");
    }
    if (NssFindItem(body.data, body.length, NSS_TAG_JSON_CONTENT, text)) {
        return ForDevice(FindJsonMember(text.data, text.length, "DevCode"), "JSON");
    }
    return {};
}

std::string ReadRequestPlugin(const ACE_Message_Block& frame) {
    NssBodyView body;
    NssBodyView text;
    if (!NssBody(&frame, body) || body.length > kMaxRequestBodyBytes ||
        !NssFindItem(body.data, body.length, NSS_TAG_JSON_CONTENT, text)) {
        return {};
    }
    return FindJsonMember(text.data, text.length, "PluginName").text;
}

std::unique_ptr<CBB::CXml> ReadXmlContent(const BP::CCmd& cmd) {
    NssBodyView text;
    auto xml = std::make_unique<CBB::CXml>();
    if (!FindText(cmd, NSS_TAG_XML_CONTENT, text) || !xml->Parse(text.data, text.length)) {
        return nullptr;
    }
    return xml->FindElem("Content") && xml->IntoElem() ? std::move(xml) : nullptr;
}

std::string XmlText(CBB::CXml& xml, const char* name) {
    const char* value = xml.FindFirstElem(name) ? xml.GetElemValue() : nullptr;
    return value == nullptr ? std::string() : std::string(value);
}

bool ReadJsonObject(const BP::CCmd& cmd, Json::Value& body) {
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
