#include "gvx_common/config/gvx_config_mgr.h"

#include "gvx_common/config/config_rules.h"
#include "gvx_common/config/gvx_config.h"
#include "gvx_common/utility/gvx_utility.h"
#include "base/bounded_string.h"
#include "base/cbb_xml.h"
#include "base/json_io.h"
#include "base/log.h"
#include "base/paths.h"
#include "nss/nss_msg.h"

#include <ace/Message_Block.h>
#include <json/value.h>

#include <algorithm>
#include <iterator>

namespace {

constexpr const char* kTitle = "Set35114ChangeFromFrame";
constexpr const char* kSection = "GB35114_CFG";
constexpr const char* kLevel = "GB35114_SECURITY_LEVEL";
constexpr const char* kKeyLabel = "GB35114_KEYLABEL";
constexpr const char* kServerID = "GB35114_SERVER_ID";
constexpr const char* kDateInterval = "GB35114_DATE_INTERNAL";
constexpr const char* kKeys[] = {kLevel, kKeyLabel, kServerID, kDateInterval};
constexpr unsigned int kDefaultInterval = 600;
constexpr std::size_t kOwnPrefixLength = 4;  // "GVX#" of an identifier, which a node code is without

// What a frame holds; a text that is missing is empty, and no key may be.
struct Frame35114 {
    std::string configType;
    std::string nodeCode;
    std::vector<std::pair<std::string, std::string>> settings;
};

template <typename ReadMember>
void ReadMembers(ReadMember read, Frame35114& frame) {
    frame.configType = read("ConfigType");
    frame.nodeCode = read("NodeCode");
    for (const char* key : kKeys) {
        frame.settings.emplace_back(key, read(key));
    }
}

bool ReadFrame(const NssBodyView& body, Frame35114& frame) {
    NssBodyView item;
    if (NssFindItem(body.data, body.length, NSS_TAG_JSON_CONTENT, item)) {
        Json::Value object;
        if (!gvx::ParseJson(item.data, item.length, object, nullptr) || !object.isObject()) {
            return false;
        }
        ReadMembers([&object](const char* name) { return gvx::JsonText(object, name); }, frame);
        return true;
    }
    CBB::CXml xml;
    if (!NssFindItem(body.data, body.length, NSS_TAG_XML_CONTENT, item) || !xml.Parse(item.data, item.length) ||
        !xml.FindElem("Content") || !xml.IntoElem()) {
        return false;
    }
    const auto read = [&xml](const char* name) {
        const char* value = xml.FindFirstElem(name) ? xml.GetElemValue() : nullptr;
        return std::string(value != nullptr ? value : "");
    };
    ReadMembers(read, frame);
    return true;
}

// Digits alone: what a number begins with would be legal for the checks.
bool IsLegal(const std::string& key, const std::string& value) {
    return gvx::CheckEdit(key, value) && gvx::ReadsBackEqual(value) &&
           (key != kDateInterval || CGvxUtility::isNum(value));
}

// A value that does not fit leaves its field empty: its beginning would be another one.
template <std::size_t N>
void CopySetting(const std::string& value, char (&field)[N]) {
    if (value.size() < N) {
        strncpy_s(field, N, value.c_str(), value.size());
    }
}

}  // namespace

bool CGvxConfigMgr::Is35114Key(const std::string& key) {
    return std::find(std::begin(kKeys), std::end(kKeys), key) != std::end(kKeys);
}

int CGvxConfigMgr::Set35114ChangeFromFrame(ACE_Message_Block* pMb) {
    if (pMb == nullptr) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_PARA_INVALID, "The input param of pMb is NULL");
        return ZVS_PARA_INVALID;
    }
    CNssMsgBase head;
    const int decoded = head.decode(pMb);
    if (decoded != ZVS_SUCCEED) {
        GVX_LOG_ERR(kTitle, "The frame can not be decoded, ret=%d", decoded);
        return decoded;
    }
    NssBodyView body;
    Frame35114 frame;
    if (!NssBody(pMb, body) || !ReadFrame(body, frame)) {
        GVX_LOG_ERR(kTitle, "The frame holds no settings.");
        return ZVS_FAIL;
    }
    if (!frame.configType.empty() && frame.configType != kSection) {
        GVX_LOG_ERR(kTitle, "The frame is about %s.", frame.configType.c_str());
        return ZVS_FAIL;
    }
    const std::string& ownID = GetGvxNetElementID();
    if (!frame.nodeCode.empty() &&
        (ownID.size() < kOwnPrefixLength || ownID.substr(kOwnPrefixLength) != frame.nodeCode)) {
        GVX_LOG_ERR(kTitle, "The frame is for node %s.", frame.nodeCode.c_str());
        return ZVS_FAIL;
    }
    for (const auto& [key, value] : frame.settings) {
        if (!IsLegal(key, value)) {
            GVX_LOG_ERR(kTitle, "[%s] is no value for %s; nothing is changed.", value.c_str(), key.c_str());
            return ZVS_FAIL;
        }
    }
    const EditGuard editing(m_mutexEdit);
    bool changed = false;
    for (const auto& [key, value] : frame.settings) {
        std::string former;
        if (!FindConfValue(key, former)) {
            GVX_LOG_ERR(kTitle, "Not found key %s in map", key.c_str());
            return ZVS_FAIL;
        }
        changed = changed || former != value;
    }
    if (!changed) {
        return ZVS_SUCCEED;
    }
    std::string directory;
    if (get_config_directory(directory) != 0) {
        GVX_LOG_ERR(kTitle, "CGvxConfigMgr get config directory failed");
        return ZVS_FAIL;
    }
    const int written = GVX_Config((directory + "/zvs_gvx.conf").c_str()).set(kSection, frame.settings);
    if (!GVX_Config::Stands(written)) {
        GVX_LOG_ERR(kTitle, "The settings can not be written; nothing is changed.");
        return ZVS_FAIL;
    }
    PublishValues(frame.settings);
    return written;
}

void CGvxConfigMgr::Get35114ConfigInfo(GVX_35114_CONFIG_INFO& info) const {
    const Snapshot settings = TakeSnapshot();  // one for all, so that they belong together
    const auto value = [&settings](const char* key) {
        const auto found = settings->find(key);
        return found != settings->end() ? found->second : std::string();
    };
    info = {};
    CopySetting(value(kLevel), info.chSecurityLevel);
    CopySetting(value(kKeyLabel), info.chKeyLabel);
    CopySetting(value(kServerID), info.chServerID);
    const std::string interval = value(kDateInterval);
    info.uiDateInterval =
        interval.empty() ? kDefaultInterval : static_cast<unsigned int>(std::max(CGvxUtility::toInt(interval), 0));
}

unsigned int CGvxConfigMgr::Add35114Listener(Config35114Listener listener) {
    const std::lock_guard<std::mutex> guard(m_mutex35114);
    m_listeners35114[++m_lastListener35114] = std::move(listener);
    return m_lastListener35114;
}

void CGvxConfigMgr::Remove35114Listener(unsigned int number) {
    const std::lock_guard<std::mutex> guard(m_mutex35114);
    m_listeners35114.erase(number);
}

void CGvxConfigMgr::Tell35114() {
    GVX_35114_CONFIG_INFO info;
    Get35114ConfigInfo(info);
    const std::lock_guard<std::mutex> guard(m_mutex35114);
    for (const auto& [number, listener] : m_listeners35114) {
        if (listener) {
            listener(info);
        }
    }
}
