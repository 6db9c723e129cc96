#include "file/file_sdk.h"

#include "base/fixed_text.h"
#include "base/log.h"
#include "file/file_device.h"
#include "gvx_common/adapter/gvx_reason.h"
#include "plugin_support/guarded.h"

#include <memory>
#include <utility>

namespace gvxfile {
namespace {

constexpr const char* kTitle = "file plug-in";
constexpr const char* kAlarmTable = "file_alarms.xml";  // beside the configuration file

// Written by Init, which runs once and before anybody asks.
std::string& LastErrorText() {
    static std::string text;
    return text;
}

void Describe(const MainDeviceInfo& info, FileDevice& device) {
    device.SetMainDevID(info.strDevCode);
    device.SetParentCode(info.strParentCode);
    device.SetDevFormType(info.eDevFormType);
    device.SetIP(info.strIP);
    device.SetPort(info.nPort);
    device.SetUserName(info.strUserName);
    device.SetPassword(info.strPassword);
    device.SetModelType(info.strModel);
}

}  // namespace

const char* FileSdk::LastError() {
    return LastErrorText().c_str();
}

bool FileSdk::Init(const char* configFile) {
    const int result = gvxplugin::Guarded(kTitle, "Init", [&]() -> int {
        LastErrorText() = "The media cannot be read.";
        if (!Load(configFile == nullptr ? "" : configFile, LastErrorText())) {
            GVX_LOG_ERR_CODE(kTitle, ZVS_OPEN_FILE_ERROR, "%s", LastError());
            return ZVS_OPEN_FILE_ERROR;
        }
        LastErrorText().clear();
        GVX_LOG_INFO(kTitle, "%zu media are ready to play, %zu codes of alarms are known.", m_media.Size(),
                     m_alarms.Codes());
        return ZVS_SUCCEED;
    });
    return result == ZVS_SUCCEED;
}

bool FileSdk::Load(const std::string& configFile, std::string& error) {
    const std::string folder = configFile.substr(0, configFile.find_last_of('/') + 1);
    return m_media.Load(configFile, error) && m_alarms.Load(folder + kAlarmTable, error);
}

int FileSdk::TakeIntakeBlock(const GvxIntakeBlock& block) {
    return gvxplugin::Guarded(kTitle, "TakeIntakeBlock", [&] {
        m_alarms.Take(block);
        return ZVS_SUCCEED;
    });
}

int FileSdk::CreateDevice(const MainDeviceInfo& info, CAdapterDevBase*& device) {
    device = nullptr;
    return gvxplugin::Guarded(kTitle, "CreateDevice", [&]() -> int {
        std::vector<MediaPtr> lenses;
        std::string error;
        MediaPtr found = info.strExtend.empty() ? m_media.At(info.strIP) : nullptr;  // as a search has found it
        if (found != nullptr) {
            lenses.push_back(std::move(found));
        } else if (!m_media.Resolve(info.strExtend, lenses, error)) {
            return GvxFail(ZVS_PARA_INVALID, "%s", error.c_str());
        }
        auto entry = std::make_unique<DirectoryEntry>(m_devices, info.strDevCode, info.eDevFormType);
        auto made = std::make_unique<FileDevice>(std::move(lenses), std::move(entry), m_desk);
        Describe(info, *made);
        device = made.release();
        return ZVS_SUCCEED;
    });
}

void FileSdk::Probe(const std::list<std::string>& addresses) {
    for (const std::string& address : addresses) {
        const MediaPtr media = m_media.At(address);
        DeviceDiscoveryInfo found{};
        if (IsSearchOver()) {
            return;
        }
        if (media != nullptr && gvx::PutText(found.szIp, address) && gvx::PutText(found.szFac, "gvx") &&
            gvx::PutText(found.szType, media->name.substr(0, sizeof found.szType - 1)) &&
            gvx::PutText(found.szSerialNumber, "FILE-" + address)) {
            UpdateDiscoveryDeviceList(found);
        }
    }
    UpdateDiscoveryPrecent(100);
}

}  // namespace gvxfile
