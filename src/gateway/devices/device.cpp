#include "gateway/devices/device.h"

#include "base/log.h"
#include "gateway/devices/device_alarm.h"
#include "gateway/messages/answer.h"
#include "gateway/plugins/plugin_guard.h"
#include "gateway/plugins/plugin_host.h"
#include "gvx_common/adapter/gvx_adapter_dev.h"
#include "gvx_common/adapter/gvx_adapter_lens.h"

#include <algorithm>

namespace gvx {

namespace {

void SetIdentity(CAdapterDevBase& adapter, const MainDeviceInfo& info, const Device::Place& place) {
    adapter.SetMainDevID(info.strDevCode);
    adapter.SetParentCode(info.strParentCode);
    adapter.SetDevFormType(info.eDevFormType);
    adapter.SetIP(info.strIP);
    adapter.SetPort(info.nPort);
    adapter.SetUserName(info.strUserName);
    adapter.SetPassword(info.strPassword);
    adapter.SetModelType(info.strModel);
    adapter.SetSCULinkID(place.scuLinkID);
    adapter.SetDevReactor(place.reactor);
}

}  // namespace

Device::Device(LoadedPlugin& plugin, const MainDeviceInfo& info, CGvxReactor* reactor)
    : m_plugin(plugin), m_code(info.strDevCode), m_address(info.strIP), m_reactor(reactor) {}

int Device::Create(LoadedPlugin& plugin, const DeviceRequest& request, const Place& place,
                   std::unique_ptr<Device>& device, std::string& reason) {
    std::unique_ptr<Device> made(new Device(plugin, request.info, place.reactor));
    int code = made->CreateAdapter(request, place, reason);
    std::vector<LensRequest> lenses = request.lenses;
    if (code == 0) {
        code = made->ReadAbility(lenses, reason);
    }
    for (auto lens = lenses.begin(); code == 0 && lens != lenses.end(); ++lens) {
        code = made->CreateLens(*lens, reason);
    }
    if (code == 0) {
        device = std::move(made);
    }
    return code;
}

int Device::CreateAdapter(const DeviceRequest& request, const Place& place, std::string& reason) {
    int code = CallPlugin(m_plugin.Name(), "CreateDevice", m_code,
                          [&] { return m_plugin.Sdk().CreateDevice(request.info, m_adapter); });
    if (code == 0 && m_adapter == nullptr) {
        LogPluginError(m_plugin.Name(), "CreateDevice (which gave no object)", m_code, ZVS_NULL_POINTER);
        code = ZVS_NULL_POINTER;
    }
    if (code != 0) {
        m_adapter = nullptr;
        reason = "The plug-in made no device. " + ReasonOf(code);
        return code;
    }
    SetIdentity(*m_adapter, request.info, place);
    code = CallPlugin(m_plugin.Name(), "Init", m_code, [&] { return m_adapter->Init(); });
    if (code != 0) {
        reason = "The device could not be initialised. " + ReasonOf(code);
    }
    return code;
}

// A plug-in that tells nothing of its channels serves the lenses that the request names.
int Device::ReadAbility(std::vector<LensRequest>& lenses, std::string& reason) {
    const int code = CallPlugin(m_plugin.Name(), "GetDeviceAbility", m_code,
                                [&] { return m_adapter->GetDeviceAbility(m_ability); });
    if (code != 0 && (code != ZVS_GVX_DEV_UN_SUPPORT || lenses.empty())) {
        reason = "The device's channels could not be read. " + ReasonOf(code);
        return code;
    }
    if (lenses.empty()) {
        for (const GVX_CHANNEL_ABILITY_INFO& channel : m_ability.channels) {
            const short number = static_cast<short>(channel.nChannelId);
            lenses.push_back({m_code + "_" + std::to_string(number), number});
        }
    }
    return 0;
}

int Device::CreateLens(const LensRequest& request, std::string& reason) {
    Lens lens;
    lens.code = request.code;
    lens.channel = request.channel;
    int code = CallPlugin(m_plugin.Name(), "CreateLens", m_code, [&] {
        CAdapterDevBase* parent = m_adapter;
        return m_adapter->CreateLens(lens.code.c_str(), lens.channel, parent, lens.adapter);
    });
    if (code == 0 && lens.adapter == nullptr) {
        LogPluginError(m_plugin.Name(), "CreateLens (which gave no object)", m_code, ZVS_NULL_POINTER);
        code = ZVS_NULL_POINTER;
    }
    if (code != 0) {
        reason = "Lens " + lens.code + " could not be made. " + ReasonOf(code);
        return code;
    }
    for (const GVX_CHANNEL_ABILITY_INFO& channel : m_ability.channels) {
        if (channel.nChannelId == lens.channel) {
            lens.ability = channel;
        }
    }
    m_lenses.push_back(std::move(lens));
    return InitLens(m_lenses.back(), reason);
}

int Device::InitLens(Lens& lens, std::string& reason) {
    const int code = CallPlugin(m_plugin.Name(), "Init of a lens", m_code, [&] { return lens.adapter->Init(); });
    lens.initialised = code == 0;
    if (code != 0) {
        reason = "Lens " + lens.code + " could not be initialised. " + ReasonOf(code);
    }
    return code;
}

const std::string& Device::PluginName() const {
    return m_plugin.Name();
}

const Device::Lens* Device::FindLens(const std::string& code) const {
    if (code.empty()) {
        return m_lenses.empty() ? nullptr : &m_lenses.front();
    }
    const auto lens = std::find_if(m_lenses.begin(), m_lenses.end(), [&](const Lens& l) { return l.code == code; });
    return lens == m_lenses.end() ? nullptr : &*lens;
}

int Device::SendAlarm(const std::string& report) {
    return SendDeviceAlarm(m_plugin.Name(), m_code, *m_adapter, report);
}

bool Device::IsChannelBusy(const Lens& lens, const StreamRequest& request) const {
    return std::any_of(m_streams.begin(), m_streams.end(), [&](const std::unique_ptr<LiveStream>& stream) {
        return stream->Lens().adapter == lens.adapter && stream->Request().streamType == request.streamType &&
               stream->Request().protocol == request.protocol;
    });
}

int Device::StartStream(const StreamRequest& request, LiveStream*& stream, std::string& reason) {
    const Lens* lens = FindLens(request.lensCode);
    if (lens == nullptr) {
        reason = ReasonOf(ZVS_GVX_LENS_NOT_EXIST);
        return ZVS_GVX_LENS_NOT_EXIST;
    }
    if (IsChannelBusy(*lens, request)) {
        reason = ReasonOf(ZVS_GVX_STREAM_EXIST);
        return ZVS_GVX_STREAM_EXIST;
    }
    auto made = std::make_unique<LiveStream>(StreamLens{m_plugin.Name(), m_code, lens->code, lens->adapter}, request);
    const int code = made->Start(reason);
    m_leftBehind = m_leftBehind || made->IsLeftBehind();
    if (code == 0) {
        stream = made.get();
        m_streams.push_back(std::move(made));
    }
    return code;
}

LiveStream* Device::FindStream(const std::string& serviceID) const {
    for (const auto& stream : m_streams) {
        if (stream->Request().serviceID == serviceID) {
            return stream.get();
        }
    }
    return nullptr;
}

int Device::StopStream(const std::string& serviceID, StreamStatistics& statistics) {
    const auto found = std::find_if(m_streams.begin(), m_streams.end(),
                                    [&](const auto& stream) { return stream->Request().serviceID == serviceID; });
    if (found == m_streams.end()) {
        return ZVS_GVX_STREAM_NOT_EXIST;
    }
    const int code = (*found)->Stop(false);
    statistics = (*found)->Statistics();
    m_leftBehind = m_leftBehind || (*found)->IsLeftBehind();
    m_streams.erase(found);
    return code;
}

std::vector<std::string> Device::StreamIDs() const {
    std::vector<std::string> ids;
    for (const auto& stream : m_streams) {
        ids.push_back(stream->Request().serviceID);
    }
    return ids;
}

Device::~Device() {
    while (!m_streams.empty()) {
        m_streams.back()->Stop(true);
        m_leftBehind = m_leftBehind || m_streams.back()->IsLeftBehind();
        m_streams.pop_back();
    }
    while (!m_lenses.empty()) {
        DeleteLens(m_lenses.back());
        m_lenses.pop_back();
    }
    if (m_adapter != nullptr) {
        DeleteAdapter();
    }
}

void Device::DeleteLens(Lens& lens) {
    if (lens.initialised) {
        CallPlugin(m_plugin.Name(), "Uninit of a lens", m_code, [&] { return lens.adapter->Uninit(); });
    }
    if (m_leftBehind) {
        LeaveBehind(std::shared_ptr<void>(lens.adapter, [](void*) {}));
        return;
    }
    CallPlugin(m_plugin.Name(), "~CAdapterLensBase", m_code, [&] {
        delete lens.adapter;
        return 0;
    });
}

void Device::DeleteAdapter() {
    CallPlugin(m_plugin.Name(), "ClearAdapterInfo", m_code, [&] { return m_adapter->ClearAdapterInfo(); });
    if (m_leftBehind) {
        GVX_LOG_WARN("Device left behind", "plug-in %s: it may still use device %s, its objects are kept.",
                     m_plugin.Name().c_str(), m_code.c_str());
        LeaveBehind(std::shared_ptr<void>(m_adapter, [](void*) {}));
        return;
    }
    CallPlugin(m_plugin.Name(), "~CAdapterDevBase", m_code, [&] {
        delete m_adapter;
        return 0;
    });
}

}  // namespace gvx
