#include "plugin_check/device_drive.h"

#include "base/fixed_text.h"
#include "base/zvs_error.h"
#include "gvx_common/adapter/gvx_adapter_interface.h"
#include "gvx_common/adapter/gvx_adapter_sdk.h"
#include "plugin_check/drive.h"
#include "plugin_check/journal.h"
#include "plugin_check/plugin_reports.h"

#include <ctime>
#include <thread>

namespace plugin_check {

namespace {

constexpr std::size_t kMostLenses = 4;

}  // namespace

void DeviceDrive::RunWhole() {
    if (Make()) {
        MakeOddLenses();
        for (CAdapterLensBase* lens : m_lenses) {
            m_streams.Stream(*lens, false);
            m_streams.Stream(*lens, true);
        }
        m_streams.StopInStart(*m_lenses.front());
        m_streams.SendWrongArguments(*m_lenses.front());
        Snapshot(*m_lenses.front());
        m_streams.PlayBack(*m_lenses.front());
        m_streams.Talk(*m_lenses.front());
        CallPlain(DeviceOperations(), *m_device);
        CallPlain(LensOperations(), *m_lenses.front());
        m_journal.Call(m_lane, "IsAllowSendAlarm", [this] {
            m_device->IsAllowSendAlarm();
            return 0;
        });
    }
    Delete();
}

void DeviceDrive::RunStreams() {
    if (Make()) {
        m_streams.Stream(*m_lenses.front(), false);
    }
    Delete();
}

bool DeviceDrive::Make() {
    MainDeviceInfo info;
    info.strDevCode = m_code;
    info.strIP = m_options.ip;
    info.nPort = m_options.port;
    info.strUserName = m_options.user;
    info.strPassword = m_options.password;
    info.strExtend = m_options.extend;
    PluginReports::Instance().DeviceLives(m_code, true);
    const int code = m_journal.Call(m_lane, "CreateDevice", [&] { return m_sdk.CreateDevice(info, m_device); });
    if ((code == 0) != (m_device != nullptr)) {
        m_journal.Broken(m_lane, "CreateDevice", "its answer and the pointer do not agree");
    }
    if (code != 0 || m_device == nullptr) {
        m_device = nullptr;
        return Cannot("CreateDevice", "no device was made, so that nothing more could be tried");
    }
    m_device->SetMainDevID(info.strDevCode);
    m_device->SetIP(info.strIP);
    m_device->SetPort(info.nPort);
    m_device->SetUserName(info.strUserName);
    m_device->SetPassword(info.strPassword);
    m_device->SetSCULinkID("SCU#001");
    m_device->SetDevReactor(&m_reactor);
    if (m_journal.Call(m_lane, "Init", [this] { return m_device->Init(); }) != 0) {
        return Cannot("Init", "the device did not log in, so that nothing more could be tried");
    }
    GVX_DEVICE_ABILITY_INFO ability;
    m_journal.Call(m_lane, "GetDeviceAbility", [&] { return m_device->GetDeviceAbility(ability); });
    if (ability.channels.empty()) {
        ability.channels.emplace_back();  // a plug-in that tells nothing serves the lens that is asked for
    }
    for (const GVX_CHANNEL_ABILITY_INFO& channel : ability.channels) {
        if (m_lenses.size() < kMostLenses) {
            MakeLens(static_cast<short>(channel.nChannelId));
        }
    }
    return !m_lenses.empty() || Cannot("CreateLens", "there is no lens, so that nothing more could be tried");
}

void DeviceDrive::MakeLens(short channel) {
    const std::string lensCode = m_code + "_" + std::to_string(channel);
    CAdapterLensBase* lens = nullptr;
    const int code = m_journal.Call(m_lane, "CreateLens", [&] {
        CAdapterDevBase* parent = m_device;
        return m_device->CreateLens(lensCode.c_str(), channel, parent, lens);
    });
    if ((code == 0) != (lens != nullptr)) {
        m_journal.Broken(m_lane, "CreateLens", "its answer and the pointer do not agree");
    }
    if (code == 0 && lens != nullptr) {
        m_lenses.push_back(lens);
        m_journal.Call(m_lane, "Init of a lens", [lens] { return lens->Init(); });
    }
}

void DeviceDrive::MakeOddLenses() {
    CAdapterLensBase* lens = nullptr;
    m_journal.MustRefuse(m_lane, "CreateLens of no channel", [&] {
        CAdapterDevBase* parent = m_device;
        return m_device->CreateLens("nobody", kUnknownType, parent, lens);
    });
    delete lens;
}

void DeviceDrive::Snapshot(CAdapterLensBase& lens) {
    PU_SNAP_CONF_REQ request{};
    if (!gvx::PutText(request.stCamerCode, lens.GetSubDevID())) {
        m_journal.Broken(m_lane, "GetSubDevID", "The lens's code is longer than a request's field.");
        return;
    }
    request.nSnapNum = 1;
    request.timeStamp = static_cast<std::uint64_t>(std::time(nullptr)) * 1000;
    m_journal.Call(m_lane, "VcuSnapShotReqInfo", [&] { return lens.VcuSnapShotReqInfo(request); });
}

template <typename Object>
void DeviceDrive::CallPlain(const std::vector<PlainOperation<Object>>& operations, Object& object) {
    for (const PlainOperation<Object>& operation : operations) {
        if (m_options.changes || !operation.changes) {
            m_journal.Call(m_lane, operation.name, [&] { return operation.call(object); });
        }
    }
}

void DeviceDrive::Delete() {
    for (auto lens = m_lenses.rbegin(); lens != m_lenses.rend(); ++lens) {
        m_journal.Call(m_lane, "Uninit of a lens", [&] { return (*lens)->Uninit(); });
        m_journal.Call(m_lane, "~CAdapterLensBase", [&] {
            delete *lens;
            return 0;
        });
    }
    if (m_device != nullptr) {
        m_journal.Call(m_lane, "ClearAdapterInfo", [this] { return m_device->ClearAdapterInfo(); });
        m_journal.Call(m_lane, "~CAdapterDevBase", [this] {
            delete m_device;
            return 0;
        });
    }
    m_streams.CloseAll();
    PluginReports::Instance().DeviceLives(m_code, false);
    std::this_thread::sleep_for(kSilence);
    m_streams.TellAll();
}

bool DeviceDrive::Cannot(const char* operation, const char* what) {
    m_journal.Broken(m_lane, operation, what);
    return false;
}

}  // namespace plugin_check
