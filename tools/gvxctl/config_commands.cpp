#include "gvxctl/config_commands.h"

#include "base/cbb_xml.h"
#include "base/json_io.h"
#include "base/zvs_error.h"
#include "gvx_common/config/setting_table.h"
#include "gvxctl/platform.h"
#include "gvxctl/requests.h"
#include "gvxctl/terminal.h"
#include "nss/nss_msg_type.h"

#include <json/value.h>

namespace gvxctl {
namespace {

constexpr const char* kPasswordRow = "<ConfigName>Password</ConfigName>";
constexpr const char* kValueBegin = "<ConfigValue>";
constexpr const char* kValueEnd = "</ConfigValue>";

std::string QueryBody(const ConfigOptions& options) {
    CBB::CXml xml;
    xml.AddDeclaration("1.0", "UTF-8");
    xml.AddElem("Content");
    xml.IntoElem();
    xml.AddElem("ConfigType", options.section.c_str());
    return xml.ToString();
}

std::string EditBody(const ConfigOptions& options) {
    CBB::CXml xml;
    xml.AddDeclaration("1.0", "UTF-8");
    xml.AddElem("Content");
    xml.IntoElem();
    xml.AddElem("ConfigInfo");
    xml.IntoElem();
    xml.AddElem("ConfigName", options.key.c_str());
    xml.AddElem("ConfigType", options.section.c_str());
    xml.AddElem("ConfigValue", options.value.c_str());
    return xml.ToString();
}

std::string ChangedBody(const ConfigOptions& options) {
    Json::Value body;
    body["ConfigSection"] = options.section;
    body["ConfigName"] = options.key;
    body["ConfigValue"] = options.value;
    return gvx::WriteJson(body);
}

// Links as the main service and sends one request; an exit code, and the response when it is kExitOk.
int Ask(const CommonOptions& common, std::uint16_t type, std::uint16_t tag, const std::string& body,
        Response& response) {
    Platform platform(common.gateway, nullptr, common.ports);
    std::string error;
    if (!platform.LinkMainService(error)) {
        return Fail(kExitNoLink, error);
    }
    return platform.Request(type, tag, body, response, error) ? kExitOk : Fail(kExitRefused, error);
}

int Refused(const Response& response) {
    return Fail(kExitRefused, RefusalText(response));
}

void BreakBefore(std::string& text, const std::string& tag, const char* indent) {
    const std::string lineBreak = std::string("\n") + indent;
    for (std::size_t at = text.find(tag); at != std::string::npos; at = text.find(tag, at + tag.size())) {
        text.insert(at, lineBreak);
        at += lineBreak.size();
    }
}

void HidePassword(std::string& text) {
    const std::size_t row = text.find(kPasswordRow);
    const std::size_t begin = row == std::string::npos ? row : text.find(kValueBegin, row);
    const std::size_t end = begin == std::string::npos ? begin : text.find(kValueEnd, begin);
    if (end != std::string::npos) {
        const std::size_t value = begin + std::char_traits<char>::length(kValueBegin);
        text.replace(value, end - value, end == value ? "" : "***");
    }
}

}  // namespace

std::string ShowUnifiedDocument(std::string xml) {
    HidePassword(xml);
    for (const char* tag : {"<ConfigNumber>", "<ModuleName>", "<ConfigList", "</ConfigList>"}) {
        BreakBefore(xml, tag, "  ");
    }
    BreakBefore(xml, "<ConfigInfo>", "    ");
    BreakBefore(xml, "<Content>", "");
    BreakBefore(xml, "</Content>", "");
    return xml;
}

int RunConfigGet(const CommonOptions& common, const ConfigOptions& options) {
    Response response;
    const int asked = Ask(common, NSS_CONFIG_QUERY_REQ, NSS_TAG_XML_CONTENT, QueryBody(options), response);
    if (asked != kExitOk) {
        return asked;
    }
    if (response.code != 0) {
        return Refused(response);
    }
    Print(ShowUnifiedDocument(response.Xml()));
    if (!options.section.empty() && !gvx::IsSettingSection(options.section)) {
        const std::string near = gvx::NearSection(options.section);
        return Fail(kExitRefused,
                    options.section + " is no section" + (near.empty() ? "" : "; " + near + " is the nearest"));
    }
    return kExitOk;
}

int RunConfigSet(const CommonOptions& common, const ConfigOptions& options) {
    Response response;
    const int asked =
        options.changed
            ? Ask(common, NSS_SET_GVX_PLUGIN_CONFIG_REQ, NSS_TAG_JSON_CONTENT, ChangedBody(options), response)
            : Ask(common, NSS_CONFIG_EDIT_REQ, NSS_TAG_XML_CONTENT, EditBody(options), response);
    if (asked != kExitOk) {
        return asked;
    }
    if (response.code != 0) {
        return Refused(response);
    }
    CBB::CXml stored;
    const bool told = stored.Parse(response.Xml().c_str()) && stored.FindElem("Content/ConfigValue");
    Print(options.key + " is set" + (told ? std::string(" to ") + stored.GetElemValue() : ""));
    return kExitOk;
}

}  // namespace gvxctl
