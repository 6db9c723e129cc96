#include "gateway/devices/device.h"

#include "base/clock.h"
#include "base/fixed_text.h"
#include "base/json_io.h"
#include "base/log.h"
#include "gateway/devices/device_alarm.h"
#include "gateway/messages/answer.h"
#include "gateway/plugins/plugin_guard.h"
#include "gateway/plugins/plugin_host.h"
#include "gvx_common/adapter/gvx_adapter_dev.h"
#include "gvx_common/adapter/gvx_adapter_lens.h"
#include "gvx_common/link/gvx_connection_mgr.h"

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
    : m_plugin(plugin),
      m_code(info.strDevCode),
      m_address(info.strIP),
      m_reactor(reactor),
      m_addedMs(MonotonicMilliseconds()) {}

Result Device::Create(const DeviceRequest& request, const Place& place, std::unique_ptr<Device>& device) {
    std::unique_ptr<Device> made(new Device(*request.plugin, request.info, place.reactor));
    made->m_scuLinkID = place.scuLinkID;
    Result result = made->CreateAdapter(request, place);
    std::vector<LensRequest> lenses = request.lenses;
    if (!result.Failed()) {
        result = made->ReadAbility(lenses);
    }
    for (auto lens = lenses.begin(); !result.Failed() && lens != lenses.end(); ++lens) {
        result = made->CreateLens(*lens);
    }
    if (!result.Failed()) {
        device = std::move(made);
    } else {
        made->m_trace.LeaveBehind();
    }
    return result;
}

Result Device::CreateAdapter(const DeviceRequest& request, const Place& place) {
    std::string said;
    int code = CallPlugin(
        m_plugin.Name(), "CreateDevice", m_code, [&] { return m_plugin.Sdk().CreateDevice(request.info, m_adapter); },
        &said);
    if (code == 0 && m_adapter == nullptr) {
        LogPluginError(m_plugin.Name(), "CreateDevice (which gave no object)", m_code, ZVS_NULL_POINTER);
        code = ZVS_NULL_POINTER;
    }
    if (code != 0) {
        m_adapter = nullptr;
        return Failure(code, "The plug-in made no device.", said);
    }
    SetIdentity(*m_adapter, request.info, place);
    code = CallPlugin(
        m_plugin.Name(), "Init", m_code, [&] { return m_adapter->Init(); }, &said);
    return code == 0 ? Result{} : Failure(code, "The device could not be initialised.", said);
}

// A plug-in that tells nothing of its channels serves the lenses that the request names.
Result Device::ReadAbility(std::vector<LensRequest>& lenses) {
    std::string said;
    const int code = CallPlugin(
        m_plugin.Name(), "GetDeviceAbility", m_code, [&] { return m_adapter->GetDeviceAbility(m_ability); }, &said);
    if (code != 0 && (code != ZVS_GVX_DEV_UN_SUPPORT || lenses.empty())) {
        return Failure(code, "The device's channels could not be read.", said);
    }
    if (lenses.empty()) {
        for (const GVX_CHANNEL_ABILITY_INFO& channel : m_ability.channels) {
            const short number = static_cast<short>(channel.nChannelId);
            lenses.push_back({m_code + "_" + std::to_string(number), number});
        }
    }
    return {};
}

Result Device::CreateLens(const LensRequest& request) {
    Lens made;
    made.code = request.code;
    made.channel = request.channel;
    std::string said;
    int code = CallPlugin(
        m_plugin.Name(), "CreateLens", m_code,
        [&] {
            CAdapterDevBase* parent = m_adapter;
            return m_adapter->CreateLens(made.code.c_str(), made.channel, parent, made.adapter);
        },
        &said);
    if (code == 0 && made.adapter == nullptr) {
        LogPluginError(m_plugin.Name(), "CreateLens (which gave no object)", m_code, ZVS_NULL_POINTER);
        code = ZVS_NULL_POINTER;
    }
    if (code != 0) {
        return Failure(code, "Lens " + made.code + " could not be made.", said);
    }
    for (const GVX_CHANNEL_ABILITY_INFO& channel : m_ability.channels) {
        if (channel.nChannelId == made.channel) {
            made.ability = channel;
        }
    }
    m_lenses.push_back(std::move(made));  // from here on it is undone with the device
    Lens& lens = m_lenses.back();
    code = CallPlugin(
        m_plugin.Name(), "Init of a lens", m_code, [&] { return lens.adapter->Init(); }, &said);
    lens.initialised = code == 0;
    return code == 0 ? Result{} : Failure(code, "Lens " + lens.code + " could not be initialised.", said);
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

Result Device::RequestSnapshot(const std::string& lensCode, PU_SNAP_CONF_REQ request) {
    const Lens* const lens = FindLens(lensCode);
    if (lens == nullptr) {
        return Failure(ZVS_GVX_LENS_NOT_EXIST);
    }
    if (!PutText(request.stCamerCode, lens->code)) {
        return Failure(ZVS_PARA_INVALID, "The lens code is too long.");
    }
    request.timeStamp = static_cast<std::uint64_t>(CurrentClock().WallMicroseconds() / 1000);
    const int code = lens->adapter->EnqueueSnapRequest(request);
    return code == 0 ? Result{} : Failure(code);
}

void Device::TakeUploadAddress(PU_UPLOAD_IMAGE_RSP address) {
    CallPlugin(m_plugin.Name(), "VcuGetUploadImgRsp", m_code, [&] { return m_adapter->VcuGetUploadImgRsp(address); });
}

void Device::TakeUploadEnd(const std::string& lensCode, PU_UPLOAD_IMAGE_COMP_REQ end) {
    const Lens* const lens = FindLens(lensCode);
    if (lens != nullptr) {
        CallPlugin(m_plugin.Name(), "VcuUploadImgCompReq", m_code,
                   [&] { return lens->adapter->VcuUploadImgCompReq(end); });
    }
}

bool Device::TakeReport(const ADAPTER_COMMON_MESSAGE& report) {
    Json::Value body(Json::objectValue);
    body["DevCode"] = m_code;
    body["LensCode"] = TextOf(report.chSubDevId);
    enNssMsgType type = NSS_GET_UPLOAD_IMAGE_URL_REQ;
    switch (report.ExceptionType) {
        case ADAPTER_REPORT_RECORDING_END:
            type = NSS_FILE_TO_END_REQ;
            body["ServiceID"] = TextOf(report.chServiceID);
            break;
        case ADAPTER_REPORT_PICTURE_SENT:
        case ADAPTER_REPORT_PICTURE_LOST:
            type = NSS_IMAGE_UPLOAD_COMPLETE_REQ;
            body["Result"] = report.ExceptionType == ADAPTER_REPORT_PICTURE_SENT ? ZVS_SUCCEED : ZVS_FAIL;
            break;
        case ADAPTER_REPORT_PICTURE_TAKEN:
            break;
        default:
            return false;
    }
    if (report.ExceptionType != ADAPTER_REPORT_RECORDING_END) {
        body["ContentID"] = TextOf(report.stContentId);
        body["SessionID"] = Json::UInt64(report.ulIdentifyID);
        body["SnapType"] = static_cast<int>(report.enSnapType);
    }
    const int result = CGvxConnectionMgr::Instance()->SendRetMsgWithJson(type, WriteJson(body), kElementGVX,
                                                                         std::string(), std::string());
    if (result != 0 && type == NSS_GET_UPLOAD_IMAGE_URL_REQ) {
        PU_UPLOAD_IMAGE_RSP address;
        address.strLensCode = TextOf(report.chSubDevId);
        address.strContentID = TextOf(report.stContentId);
        address.nResult = result;
        TakeUploadAddress(std::move(address));
    }
    return true;
}

int Device::SendAlarm(const std::string& report) {
    return SendDeviceAlarm(m_plugin.Name(), m_code, *m_adapter, report);
}

Result Device::StartStream(const StreamRequest& request, LiveStream*& stream) {
    const Lens* lens = FindLens(request.lensCode);
    if (lens == nullptr) {
        return Failure(ZVS_GVX_LENS_NOT_EXIST);
    }
    auto made = std::make_unique<LiveStream>(StreamLens{m_plugin.Name(), m_code, lens->code, lens->adapter}, request);
    Result result;
    result.code = made->Start(result.reason);
    m_leftBehind = m_leftBehind || made->IsLeftBehind();
    if (!result.Failed()) {
        stream = made.get();
        m_streams.push_back(std::move(made));
    }
    return result;
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
    // A capture that does not come back runs on in the lens and in what it knows of its device.
    if (CallPlugin(m_plugin.Name(), "StopSnapQueueThread", m_code,
                   [&] { return lens.adapter->StopSnapQueueThread(); }) == ZVS_GVX_GET_SNAP_SHOT_ERROR) {
        NoteLeftBehind(m_plugin.Name(), "a capture", m_code);
        m_leftBehind = true;
    }
    if (lens.initialised) {
        CallPlugin(m_plugin.Name(), "Uninit of a lens", m_code, [&] { return lens.adapter->Uninit(); });
    }
    if (m_leftBehind) {
        lens.room.Keep(lens.adapter);
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
        m_room.Keep(m_adapter);
        return;
    }
    CallPlugin(m_plugin.Name(), "~CAdapterDevBase", m_code, [&] {
        delete m_adapter;
        return 0;
    });
}

}  // namespace gvx
