#include "gateway/requests/config_work.h"

#include "base/bounded_string.h"
#include "base/cbb_xml.h"
#include "base/fixed_text.h"
#include "base/json_io.h"
#include "base/log.h"
#include "base/paths.h"
#include "bp/session.h"
#include "gateway/messages/answer.h"
#include "gateway/messages/request_body.h"
#include "gateway/requests/gateway_context.h"
#include "gvx_common/config/config_rules.h"
#include "gvx_common/config/gvx_config.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/event/gvx_reactor.h"
#include "nss/nss_msg_type.h"

#include <json/value.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string_view>

namespace gvx {

namespace {

constexpr std::string_view kLogUploadNames[] = {"WorkSpace", "ServerAddr", "ServerPort", "Username", "Password"};

struct Edit {
    std::string section;
    std::string key;
    std::string value;
};

bool IsLogUpload(const Edit& edit) {
    return edit.section == "LOG_CFG" &&
           std::find(std::begin(kLogUploadNames), std::end(kLogUploadNames), edit.key) != std::end(kLogUploadNames);
}

// Why a legal value could not be set, by the code of the failure.
std::string WriteFault(const Edit& edit, int code) {
    if (code == GVX_Config::kNotOnDisk && edit.key != "GVX_PLUGIN_DEBUG_LOG_SWITCH") {
        return edit.key +
               " has its new value, but the disk has not confirmed it: a power loss may bring the old one back.";
    }
    if (edit.key == "GVX_SIP_LOG_SWITCH") {
        return "A plug-in with a SIP stack is missing or refuses the switch.";
    }
    if (edit.key == "GVX_PLUGIN_DEBUG_LOG_SWITCH") {
        return "log.xml could not be changed.";
    }
    if (edit.key == "SUBNET_NAT_IP_LIST") {
        return "The list holds what is no <ip>/<mask>, or zvs_gvx_nat.conf could not be changed.";
    }
    if (GvxConfigMgr()->GetMapCfgKeyValue().count(edit.key) == 0) {
        return edit.key + " does not stand in zvs_gvx.conf.";
    }
    if (!ReadsBackEqual(edit.value)) {
        return "A value with ';' or with blanks around it would be another after a restart.";
    }
    std::string directory;
    char value[GVX_Config::kValueBytes];
    get_config_directory(directory);
    errno = 0;
    GVX_Config file((directory + "/zvs_gvx.conf").c_str());
    const int fault = errno;
    if (!file.IsWhole()) {
        return "zvs_gvx.conf can not be read" + (fault != 0 ? std::string(": ") + std::strerror(fault) : "") + ".";
    }
    if (file.get(edit.section.c_str(), edit.key.c_str(), value, sizeof(value)) != 0) {
        return edit.key + " does not stand in the section [" + edit.section + "]; look in [" +
               FindSetting(edit.key)->section + "].";
    }
    return "zvs_gvx.conf could not be read or written at that moment; the log says why.";
}

// A record with its value for a scope: it may be a password.
struct ScopedRecord {
    CONFIG_INFO info{};
    ScopedRecord() = default;
    ~ScopedRecord() { memset_s(&info, sizeof(info), 0, sizeof(info)); }
    ScopedRecord(const ScopedRecord&) = delete;
    ScopedRecord& operator=(const ScopedRecord&) = delete;
};

bool FillRecord(const Edit& edit, CONFIG_INFO& info) {
    return PutText(info.chConfigName, edit.key) && PutText(info.chConfigType, edit.section) &&
           PutText(info.chConfigValue, edit.value);
}

std::string NoSetting(const std::string& key) {
    const std::string near = NearKey(key);
    return key + " is no setting" + (near.empty() ? "." : "; " + near + " is the nearest.");
}

// "99 cameras" passes the platform's check for its number, but readers would not take it.
bool IsOddValue(const std::string& key, const std::string& value) {
    const SettingRow* const row = FindSetting(key);
    return row != nullptr && IsEditable(key) && !row->edit.anyValue && ReadsBackEqual(value) &&
           !FitsSetting(*row, value);
}

// Does the edit. A failure says why.
Result Apply(const Edit& edit) {
    if (edit.key.empty()) {
        return {ZVS_PARA_INVALID, "ConfigName is missing."};
    }
    if (IsLogUpload(edit)) {
        long long port = 0;
        if (edit.key == "ServerPort" && !ReadNumber(edit.value, 0, 65535, port)) {
            return {ZVS_PARA_INVALID, "ServerPort is a number from 0 to 65535."};
        }
        const int code = GvxConfigMgr()->SetLogSFTPConf(edit.key.c_str(), edit.value.c_str());
        return code == ZVS_FAIL      ? Result{code, "The value of " + edit.key + " is too long."}
               : code != ZVS_SUCCEED ? Failure(code)
                                     : Result{};
    }
    const SettingRow* const row = FindSetting(edit.key);
    if (row == nullptr) {
        return {ZVS_FAIL, NoSetting(edit.key)};
    }
    if (row->edit.by == SettingEdit::By::Operator) {
        if (!FitsSetting(*row, edit.value)) {
            return {ZVS_PARA_INVALID, edit.key + " is a number from " + std::to_string(row->rule.least) + " to " +
                                          std::to_string(row->rule.most) + "."};
        }
        const int code = GvxConfigMgr()->SetGVXConfigValue(edit.section, edit.key, edit.value);
        return code == ZVS_SUCCEED ? Result{} : Result{code, WriteFault(edit, code)};
    }
    ScopedRecord record;
    if (!FillRecord(edit, record.info)) {
        return {ZVS_PARA_INVALID, "A key has 63 characters at most, a section and a value have 31."};
    }
    if (IsOddValue(edit.key, edit.value)) {
        return {ZVS_FAIL, edit.value + " is no value for " + edit.key + "."};
    }
    const int code = GvxConfigMgr()->SetGvxConfigEdit(record.info);
    if (code == ZVS_SUCCEED) {
        return {};
    }
    if (!IsEditable(edit.key)) {
        return {code, edit.key + " can not be edited at run time."};
    }
    if (!CheckEdit(edit.key, edit.value)) {
        return {code, edit.value + " is no value for " + edit.key + "."};
    }
    return {code, WriteFault(edit, code)};
}

// What a successful edit has left, as a log line may show it.
std::string StoredValue(const Edit& edit) {
    return LoggableValue(edit.key, GvxConfigMgr()->GetConfValue(edit.key, edit.value).c_str());
}

// An edit that asks a plug-in is served by that plug-in's own thread, so that one that does not return holds up such
// edits of its own alone. True when that thread has it, or refuses it.
bool LeaveToPlugin(GatewayContext& context, const BP::CGvxSessionBase& session, const BP::CCmd& cmd,
                   const std::string& key) {
    BP::CPluginInfo plugin;
    const int protocol = CGvxConfigMgr::SwitchedProtocol(key);
    CGvxReactor* const reactor = protocol != 0 && context.plugins.InstallPlugin(protocol, plugin)
                                     ? context.pluginReactors.Of(plugin.m_strName)
                                     : nullptr;
    if (reactor == nullptr || reactor->IsOwnThread()) {
        return false;
    }
    const std::unique_ptr<BP::CCmd> again(cmd.NewClone());
    CGvxNssCmd entry;
    entry.m_pCmd = again.get();
    entry.m_devID = session.GetRespDevID();
    if (again == nullptr || reactor->PushMessage(entry) != 0) {
        AnswerBare(cmd, ZVS_FAIL);
    }
    return true;
}

bool ReadXmlEdit(const BP::CCmd& cmd, Edit& edit) {
    const std::unique_ptr<CBB::CXml> xml = ReadXmlContent(cmd);
    if (xml == nullptr || !xml->FindElem("ConfigInfo") || !xml->IntoElem()) {
        return false;
    }
    edit.section = XmlText(*xml, "ConfigType");
    edit.key = XmlText(*xml, "ConfigName");
    if (xml->FindFirstElem("ConfigValue")) {
        edit.value = xml->GetElemValue();  // copied in place: it may be a password
    }
    return true;
}

}  // namespace

int QueryConfig(GatewayContext& /*context*/, BP::CGvxSessionBase& /*session*/, const BP::CCmd& cmd) {
    const std::unique_ptr<CBB::CXml> request = ReadXmlContent(cmd);
    const std::string section = request != nullptr ? XmlText(*request, "ConfigType") : std::string();
    CBB::CXml document;
    const int code = GvxConfigMgr()->GetGvxConfig(document, section.c_str());
    if (code != ZVS_SUCCEED) {
        AnswerBare(cmd, code);
        return code;
    }
    AnswerXml(cmd, document, ZVS_SUCCEED);
    return ZVS_SUCCEED;
}

int EditConfig(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    Edit edit;
    const bool isRead = ReadXmlEdit(cmd, edit);
    if (isRead && LeaveToPlugin(context, session, cmd, edit.key)) {
        return ZVS_SUCCEED;
    }
    const Result result = isRead ? Apply(edit) : Result{ZVS_PARA_INVALID, "The body holds no ConfigInfo."};
    const std::string stored = result.Failed() ? std::string() : StoredValue(edit);
    memset_s(edit.value.data(), edit.value.size() + 1, 0, edit.value.size());  // it may be a password
    CBB::CXml body;
    body.AddDeclaration("1.0", "UTF-8");
    body.AddElem("Content");
    body.IntoElem();
    body.AddElem("ConfigName", edit.key.c_str());
    if (result.Failed()) {
        GVX_LOG_WARN_CODE("Edit of a setting", result.code, "%s", result.reason.c_str());
        body.AddElem("Reason", result.reason.c_str());
    } else {
        body.AddElem("ConfigValue", stored.c_str());
    }
    AnswerXml(cmd, body, result.code);
    return result.code;
}

int TakeChangedConfig(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    Json::Value request;
    Json::Value body(Json::objectValue);
    bool isText = true;
    bool isOdd = false;
    if (ReadJsonObject(cmd, request)) {
        body["ConfigName"] = JsonText(request, "ConfigName");
        isText = !request.isMember("ConfigValue") || request["ConfigValue"].isString();
        std::string value = JsonText(request, "ConfigValue");
        isOdd = isText && IsOddValue(JsonText(request, "ConfigName"), value);
        memset_s(value.data(), value.size() + 1, 0, value.size());  // it may be a password
    }
    WipeJson(request);
    if (LeaveToPlugin(context, session, cmd, JsonText(body, "ConfigName"))) {
        return ZVS_SUCCEED;
    }
    // The core takes what is no text for an empty value, and that switches some settings off.
    const int code = isOdd    ? int{ZVS_FAIL}
                     : isText ? GvxConfigMgr()->SetEditConfigFromFrame(cmd.GetMsgBlock())
                              : int{ZVS_PARA_INVALID};
    if (code != ZVS_SUCCEED) {
        const std::string key = JsonText(body, "ConfigName");
        body["Reason"] = !isText                       ? "ConfigValue is no text."
                         : key.empty()                 ? "The body names no setting."
                         : FindSetting(key) == nullptr ? NoSetting(key)
                         : code == GVX_Config::kNotOnDisk && key != "GVX_PLUGIN_DEBUG_LOG_SWITCH"
                             ? key + " has its new value, but a power loss may bring the old one back."
                         : IsEditable(key) ? "The value is not allowed or could not be written; the log says why."
                                           : key + " can not be edited at run time.";
    }
    AnswerJson(cmd, body, code);
    return code;
}

int Take35114Config(GatewayContext& /*context*/, BP::CGvxSessionBase& /*session*/, const BP::CCmd& cmd) {
    const int code = GvxConfigMgr()->Set35114ChangeFromFrame(cmd.GetMsgBlock());
    if (cmd.GetReqID() == NSS_MODIFY_GB35114_CONF_REQ) {
        AnswerBare(cmd, code);
    }
    return code;
}

}  // namespace gvx
