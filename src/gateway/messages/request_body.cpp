#include "gateway/messages/request_body.h"

#include "base/cbb_xml.h"
#include "base/json_io.h"
#include "bp/cmd.h"
#include "gateway/messages/request_target.h"
#include "nss/nss_msg.h"

namespace gvx {

namespace {

bool FindText(const BP::CCmd& cmd, std::uint16_t tag, NssBodyView& text) {
    NssBodyView body;
    return cmd.GetMsgBlock() != nullptr && NssBody(cmd.GetMsgBlock(), body) && body.length <= kMaxRequestBodyBytes &&
           NssFindItem(body.data, body.length, tag, text);
}

}  // namespace

bool ReadXmlContent(const BP::CCmd& cmd, CBB::CXml& xml) {
    NssBodyView text;
    return FindText(cmd, NSS_TAG_XML_CONTENT, text) && xml.Parse(text.data, text.length) && xml.FindElem("Content") &&
           xml.IntoElem();
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

}  // namespace gvx
