#include "gvx_common/config/gvx_config_mgr.h"

#include "base/bounded_string.h"
#include "base/cbb_xml.h"
#include "base/fixed_text.h"
#include "base/json_io.h"
#include "base/log.h"
#include "base/log_sftp_conf.h"
#include "base/paths.h"
#include "bp/service.h"
#include "gvx_common/config/config_rules.h"
#include "gvx_common/config/gvx_config.h"
#include "gvx_common/utility/gvx_utility.h"
#include "nss/nss_msg.h"

#include <ace/Message_Block.h>
#include <json/value.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

constexpr const char* kDebugLogSwitchPath = "Log/DebugLog/DebugLogSwitch";

// The name stands beside the value and not before it, where the log's own redactor would look. What is no edit at all
// may hold a secret anywhere: it shows its length alone.
std::string LoggableBody(const std::string& text) {
    Json::Value body;
    if (!gvx::ParseJson(text.data(), text.size(), body, nullptr) || !body.isObject()) {
        return "(" + std::to_string(text.size()) + " bytes)";
    }
    if (!gvx::IsSecretName(gvx::JsonText(body, "ConfigName"))) {
        return text;
    }
    gvx::WipeJson(body["ConfigValue"]);
    body["ConfigValue"] = "***";
    return gvx::WriteJson(body);
}

// What an edit brings with it, wiped at the end: the value may be a password.
struct EditSecrets {
    std::string text;
    Json::Value body;
    CONFIG_MANAGER_DATA_JSON edit;
    CONFIG_INFO info{};

    EditSecrets() = default;
    ~EditSecrets() {
        memset_s(text.data(), text.size() + 1, 0, text.size());
        gvx::WipeJson(body);
        memset_s(edit.configValue.data(), edit.configValue.size() + 1, 0, edit.configValue.size());
        memset_s(&info, sizeof(info), 0, sizeof(info));
    }
    EditSecrets(const EditSecrets&) = delete;
    EditSecrets& operator=(const EditSecrets&) = delete;
};

// Into the text itself, so that no copy is left behind.
void ReadText(const Json::Value& body, const char* name, std::string& text) {
    const char* begin = nullptr;
    const char* end = nullptr;
    if (body.isMember(name) && body[name].isString() && body[name].getString(&begin, &end)) {
        text.assign(begin, end);
    }
}

void ReadEdit(const Json::Value& body, CONFIG_MANAGER_DATA_JSON& edit) {
    if (!body.isObject()) {
        return;
    }
    ReadText(body, "ConfigSection", edit.configSection);
    ReadText(body, "ConfigName", edit.configName);
    ReadText(body, "ConfigValue", edit.configValue);
    if (body.isMember("ConfigValueType") && body["ConfigValueType"].isInt()) {
        edit.configValueType = body["ConfigValueType"].asInt();
    }
}

bool FillEdit(const CONFIG_MANAGER_DATA_JSON& edit, CONFIG_INFO& gvxConfigEdit) {
    constexpr const char* kTitle = "SetEditConfigFromFrame";
    if (!gvx::PutText(gvxConfigEdit.chConfigName, edit.configName)) {
        GVX_LOG_ERR(kTitle, "strncpy_s gvxConfigEdit.chConfigName failed!");
        return false;
    }
    if (!gvx::PutText(gvxConfigEdit.chConfigType, edit.configSection)) {
        GVX_LOG_ERR(kTitle, "strncpy_s gvxConfigEdit.chConfigType failed!");
        return false;
    }
    if (!gvx::PutText(gvxConfigEdit.chConfigValue, edit.configValue)) {
        GVX_LOG_ERR(kTitle, "strncpy_s gvxConfigEdit.chConfigValue failed!");
        return false;
    }
    return true;
}

// The JSON text of a frame; false when there is none.
bool ReadJsonText(const ACE_Message_Block* pMb, std::string& text) {
    NssBodyView body;
    NssBodyView item;
    if (!NssBody(pMb, body) || !NssFindItem(body.data, body.length, NSS_TAG_JSON_CONTENT, item) || item.length == 0) {
        return false;
    }
    text.assign(item.data, item.length);
    return true;
}

struct SwitchRow {
    const char* name;
    BP::enDevProtocolType protocol;
};
constexpr SwitchRow kSdkLogSwitches[] = {
    {"GVX_HIKSDK_LOG_SWITCH", BP::DEV_PROTOCOL_TYPE_HIKSDK},
    {"GVX_DHSDK_LOG_SWITCH", BP::DEV_PROTOCOL_TYPE_DHSDK},
    {"GVX_PLUGIN_DEBUG_LOG_SWITCH", BP::DEV_PROTOCOL_TYPE_ONVIF},
};

// Null for a key that switches none.
const SwitchRow* FindSwitch(const std::string& key) {
    const auto* row = std::find_if(std::begin(kSdkLogSwitches), std::end(kSdkLogSwitches),
                                   [&key](const SwitchRow& candidate) { return key == candidate.name; });
    return row != std::end(kSdkLogSwitches) ? row : nullptr;
}

bool InstallPlugin(const char* title, BP::enDevProtocolType protocol, BP::CPluginInfo& info) {
    if (BP::CPluginMgr::InstallPlugin(protocol, info)) {
        return true;
    }
    GVX_LOG_ERR(title, "InstallPlugin failed! DevProtocol[%d]", static_cast<int>(protocol));
    return false;
}

// Holds the record with its password for a scope.
struct ScopedSFTPConf {
    LOG_SFTP_CONF conf{};
    ~ScopedSFTPConf() { memset_s(&conf, sizeof(conf), 0, sizeof(conf)); }
};

struct TextField {
    const char* name;
    char* text;
    std::size_t size;
};

// Puts one setting into the record; a name that is none leaves it as it is.
int TakeField(LOG_SFTP_CONF& conf, const char* name, const char* value) {
    const TextField fields[] = {
        {"WorkSpace", conf.WorkSpace, sizeof(conf.WorkSpace)},
        {"ServerAddr", conf.ServerAddr, sizeof(conf.ServerAddr)},
        {"Username", conf.Username, sizeof(conf.Username)},
        {"Password", conf.Password, sizeof(conf.Password)},
    };
    if (std::strcmp(name, "ServerPort") == 0) {
        conf.ServerPort = static_cast<std::uint16_t>(CGvxUtility::toInt(value));
        return ZVS_SUCCEED;
    }
    const auto* field = std::find_if(std::begin(fields), std::end(fields), [name](const TextField& candidate) {
        return std::strcmp(candidate.name, name) == 0;
    });
    if (field == std::end(fields)) {
        GVX_LOG_WARN("SetLogSFTPConf", "name is [%s]", name);
        return ZVS_SUCCEED;
    }
    if (!gvx::PutText(field->text, field->size, value)) {
        GVX_LOG_ERR("SetLogSFTPConf", "strncpy_s %s failed!", name);
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

}  // namespace

int CGvxConfigMgr::SetEditConfigFromFrame(ACE_Message_Block* pMb) {
    constexpr const char* kTitle = "SetEditConfigFromFrame";
    if (pMb == nullptr) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_PARA_INVALID, "The input param of pMb is NULL");
        return ZVS_PARA_INVALID;
    }
    CNssMsgBase head;
    const int decoded = head.decode(pMb);
    if (decoded != ZVS_SUCCEED) {
        GVX_LOG_ERR("json msg decode failed", "ret=%d", decoded);
        return decoded;
    }
    EditSecrets secrets;
    const std::string& text = secrets.text;
    if (!ReadJsonText(pMb, secrets.text)) {
        GVX_LOG_ERR(kTitle, "jsonMsg is null");
        return ZVS_FAIL;
    }
    GVX_LOG_INFO(kTitle, "[NSS_SET_CHANGED_CONFIG_REQ] the json data is %s", LoggableBody(text).c_str());
    if (!gvx::ParseJson(text.data(), text.size(), secrets.body, nullptr)) {
        GVX_LOG_ERR(kTitle, "parse json faild.");
        return ZVS_FAIL;
    }
    ReadEdit(secrets.body, secrets.edit);
    if (!FillEdit(secrets.edit, secrets.info)) {
        return ZVS_FAIL;
    }
    const int result = SetGvxConfigEdit(secrets.info);
    if (result != ZVS_SUCCEED) {
        GVX_LOG_ERR(kTitle, "[NSS_SET_CHANGED_CONFIG_REQ]SetGvxConfigEdit failed.");
    }
    return result;
}

int CGvxConfigMgr::SetGvxConfigEdit(CONFIG_INFO& info) {
    const std::string key = info.chConfigName;
    const char* shown = gvx::LoggableValue(key, info.chConfigValue);
    GVX_LOG_INFO("SetGvxConfigEdit", "ConfigName[%s] ConfigType[%s] ConfigValue[%s] ", info.chConfigName,
                 info.chConfigType, shown);
    if (!CheckSetValue(info)) {
        GVX_LOG_ERR("SetGvxConfigEdit", "ItemName[%s], value[%s],si out of range", info.chConfigName, shown);
        return ZVS_FAIL;
    }
    const auto number = static_cast<unsigned int>(CGvxUtility::toInt(info.chConfigValue));
    if (key == "GVX_SIP_LOG_SWITCH") {
        return setSipStackLogSwitch(number);
    }
    if (SwitchedProtocol(key) != 0) {
        SetHikAndDahuaSDKSwitch(key, number);
    }
    const EditGuard editing(m_mutexEdit);
    if (key == "GVX_SDK_SYNC_TIME_SWITCH") {
        setSdkSyncTimeSwitch(number);
    } else if (key == "GVX_SDK_SYNC_TIME_INTERVAL") {
        setSdkSyncTimeInterval(number);
    }
    return SetGVXConfigValue(info.chConfigType, info.chConfigName, info.chConfigValue);
}

bool CGvxConfigMgr::CheckSetValue(const CONFIG_INFO& info) const {
    return gvx::CheckEdit(info.chConfigName, info.chConfigValue);
}

int CGvxConfigMgr::SetGVXConfigValue(const std::string& section, const std::string& key, const std::string& value) {
    const EditGuard editing(m_mutexEdit);
    GVX_LOG_INFO("SetGVXConfigValue", "Set Config section[%s], key[%s], newValue[%s]", section.c_str(), key.c_str(),
                 gvx::LoggableValue(key, value.c_str()));
    std::string directory;
    if (get_config_directory(directory) != 0) {
        GVX_LOG_ERR("SetGVXConfigValue", "CGvxConfigMgr get config directory failed");
        return ZVS_FAIL;
    }
    if (key == "SUBNET_NAT_IP_LIST") {
        return SetNatList(directory + "/zvs_gvx_nat.conf", section, key, value);
    }
    if (key == "GVX_PLUGIN_DEBUG_LOG_SWITCH") {
        return SetDebugLogSwitch(directory, value);
    }
    return SetFileValue(directory + "/zvs_gvx.conf", section, key, value);
}

int CGvxConfigMgr::SetFileValue(const std::string& file, const std::string& section, const std::string& key,
                                const std::string& value) {
    std::string oldValue;
    if (!FindConfValue(key, oldValue)) {
        GVX_LOG_ERR("SetGVXConfigValue", "Not found key %s in map", key.c_str());
        return ZVS_FAIL;
    }
    const char* shown = gvx::LoggableValue(key, value.c_str());
    GVX_LOG_INFO("SetGVXConfigValue", "secion=%s, key=%s, oldValue=%s, newValue=%s", section.c_str(), key.c_str(),
                 gvx::LoggableValue(key, oldValue.c_str()), shown);
    if (oldValue == value) {
        return ZVS_SUCCEED;
    }
    if (!gvx::ReadsBackEqual(value)) {
        GVX_LOG_ERR("SetGVXConfigValue", "A value with ';' or outer blanks would be read back as another, key=%s",
                    key.c_str());
        return ZVS_FAIL;
    }
    const int written = m_mayWrite ? GVX_Config(file.c_str()).set(section.c_str(), key.c_str(), value.c_str()) : 0;
    if (!GVX_Config::Stands(written)) {
        GVX_LOG_ERR("SetGVXConfigValue", "Failed to set gvx config, section=%s, key=%s, value=%s", section.c_str(),
                    key.c_str(), shown);
        return ZVS_FAIL;
    }
    PublishValues({{key, value}});
    if (key == "TV_INIT_FORBID_RSA_SWITCH") {
        BP::CPluginMgr::SendRebootPluginMsg();
    }
    return written;
}

int CGvxConfigMgr::SetDebugLogSwitch(const std::string& directory, const std::string& value) {
    const std::string path = directory + "/log.xml";
    CBB::CXml xml;
    if (!xml.Load(path.c_str())) {
        GVX_LOG_ERR("Load Log.xml File failed!", "$filepath=%s", path.c_str());
        return ZVS_FAIL;
    }
    if (ModXmlElemValue(xml, kDebugLogSwitchPath, value == "1" ? "True" : "False") != ZVS_SUCCEED) {
        GVX_LOG_ERR("SetGVXConfigValue", "Set GVX Plugin DebugLogSwitch Failed.");
        return ZVS_FAIL;
    }
    if (!xml.Save(path.c_str())) {
        GVX_LOG_ERR_CODE("SetGVXConfigValue", ZVS_WRITE_FILE_ERROR, "save to log.xml failed.");
        return ZVS_WRITE_FILE_ERROR;
    }
    return ZVS_SUCCEED;
}

int CGvxConfigMgr::ModXmlElemValue(CBB::CXml& xml, const char* path, const char* value) {
    if (path == nullptr || value == nullptr) {
        return ZVS_FAIL;
    }
    xml.Rewind();
    return xml.FindElem(path) && xml.SetElemValue(value) ? ZVS_SUCCEED : ZVS_FAIL;
}

int CGvxConfigMgr::SwitchedProtocol(const std::string& key) {
    if (key == "GVX_SIP_LOG_SWITCH") {
        return BP::DEV_PROTOCOL_TYPE_T28181;
    }
    const SwitchRow* const row = FindSwitch(key);
    return row != nullptr ? row->protocol : 0;
}

int CGvxConfigMgr::setSipStackLogSwitch(unsigned int value) {
    constexpr const char* kTitle = "setSipStackLogSwitch";
    GVX_LOG_INFO(kTitle, "Set T28181 sipstack logswitch to [%u].", value);
    BP::CPluginInfo plugin;
    if (!InstallPlugin(kTitle, BP::DEV_PROTOCOL_TYPE_T28181, plugin)) {
        return ZVS_FAIL;
    }
    if (plugin.SetSipStackLogSwitch(value) != ZVS_SUCCEED) {
        GVX_LOG_ERR(kTitle, "Set T28181 sipstack logswitch to [%d] failed.", static_cast<int>(value));
        return ZVS_FAIL;
    }
    if (!InstallPlugin(kTitle, BP::DEV_PROTOCOL_TYPE_TEYES, plugin)) {
        return ZVS_FAIL;
    }
    if (plugin.SetSipStackLogSwitch(value) != ZVS_SUCCEED) {
        GVX_LOG_ERR(kTitle, "Set Teyes sipstack logswitch to [%d] failed.", static_cast<int>(value));
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CGvxConfigMgr::SetHikAndDahuaSDKSwitch(const std::string& name, unsigned int value) {
    constexpr const char* kTitle = "SetHikAndDahuaSDKSwitch";
    const SwitchRow* const row = FindSwitch(name);
    if (row == nullptr) {
        GVX_LOG_ERR(kTitle, "Unsupporetd switch name! switchName[%s]", name.c_str());
        return ZVS_FAIL;
    }
    BP::CPluginInfo plugin;
    if (!InstallPlugin(kTitle, row->protocol, plugin)) {
        return ZVS_FAIL;
    }
    if (plugin.SetSDKLogSwitch(value) != ZVS_SUCCEED) {
        GVX_LOG_ERR(kTitle, "Set SDK Log failed!");
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CGvxConfigMgr::SetLogSFTPConf(const char* name, const char* value) {
    const EditGuard editing(m_mutexEdit);
    if (name == nullptr || value == nullptr) {
        GVX_LOG_ERR_CODE("SetLogSFTPConf", ZVS_PARA_INVALID, "The name or the value is NULL");
        return ZVS_PARA_INVALID;
    }
    ScopedSFTPConf record;
    if (read_log_sftp_conf(&record.conf) != 0) {
        GVX_LOG_ERR_CODE("SetLogSFTPConf", ZVS_GVX_GET_LOG_SFTP_CONF_ERROR, "read_log_sftp_conf failed");
        return ZVS_GVX_GET_LOG_SFTP_CONF_ERROR;
    }
    if (TakeField(record.conf, name, value) != ZVS_SUCCEED) {
        return ZVS_FAIL;
    }
    if (write_log_sftp_conf(&record.conf) != 0) {
        GVX_LOG_ERR_CODE("SetLogSFTPConf", ZVS_GVX_SET_LOG_SFTP_CONF_ERROR, "write_log_sftp_conf failed");
        return ZVS_GVX_SET_LOG_SFTP_CONF_ERROR;
    }
    return ZVS_SUCCEED;
}
