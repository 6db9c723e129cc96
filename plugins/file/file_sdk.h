#pragma once

#include "file/alarm_intake.h"
#include "file/device_directory.h"
#include "file/media_list.h"
#include "gvx_common/adapter/gvx_adapter_sdk.h"
#include "plugin_support/picture_desk.h"

#include <memory>
#include <string>

namespace gvxfile {

// The plug-in as a whole: its media, and the devices that play them. Init comes first; then any thread may make
// devices, and one thread at a time gives blocks of the intake.
class FileSdk : public CAdapterSdkBase {
public:
    // Searches report at once what they find.
    FileSdk() { m_enUpdatePrecentMode = Update_Precent_Mode_Passive; }

    bool Init(const char* configFile) override;
    int CreateDevice(const MainDeviceInfo& info, CAdapterDevBase*& device) override;
    void SetAlarmMessageCallback(ADAPTER_ALARM_CALLBACK* callback) override { m_alarms.SetCallback(callback); }

    void SetCommonMessageCallback(ADAPTER_COMMON_MESSAGE_CALLBACK* callback) override { m_desk->SetCallback(callback); }
    void SendLocalProbeMessage(std::list<std::string>& addresses) override { Probe(addresses); }
    void SendRemoteProbeMessage(std::list<std::string>& addresses) override { Probe(addresses); }

    // Bytes that a device pushes to the gateway. 0, or an error code.
    int TakeIntakeBlock(const GvxIntakeBlock& block);

    // Why the last Init of the process failed.
    static const char* LastError();

private:
    bool Load(const std::string& configFile, std::string& error);
    void Probe(const std::list<std::string>& addresses);

    MediaList m_media;
    const std::shared_ptr<DeviceDirectory> m_devices = std::make_shared<DeviceDirectory>();
    const std::shared_ptr<gvxplugin::PictureDesk> m_desk =
        std::make_shared<gvxplugin::PictureDesk>("file plug-in", "GvxFileUpload");
    AlarmIntake m_alarms{m_devices};
};

}  // namespace gvxfile
