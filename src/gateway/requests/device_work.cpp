#include "gateway/requests/device_work.h"

#include "base/cbb_xml.h"
#include "base/log.h"
#include "bp/session.h"
#include "gateway/alarms/plugin_troubles.h"
#include "gateway/devices/device_request.h"
#include "gateway/messages/answer.h"
#include "gateway/requests/gateway_context.h"
#include "gateway/streams/stream_ledger.h"

namespace gvx {

namespace {

void BeginContent(CBB::CXml& body, const std::string& device) {
    body.AddDeclaration("1.0", "UTF-8");
    body.AddElem("Content");
    body.IntoElem();
    body.AddElem("DevCode", device.c_str());
}

void AnswerAdded(const BP::CCmd& cmd, const std::string& code, const std::vector<Device::Lens>& lenses) {
    CBB::CXml body;
    BeginContent(body, code);
    body.AddElem("LensList");
    body.IntoElem();
    for (const Device::Lens& lens : lenses) {
        body.AddElem("Lens");
        body.IntoElem();
        body.AddElem("LensCode", lens.code.c_str());
        body.AddElem("Channel", std::to_string(lens.channel).c_str());
        body.OutOfElem();
    }
    AnswerXml(cmd, body, ZVS_SUCCEED);
}

// Settles an addition however its work ends: the key would stay bound for ever otherwise.
class AdditionSettler {
public:
    AdditionSettler(GatewayContext& context, const std::string& device) : m_context(context), m_device(device) {}
    ~AdditionSettler() {
        m_context.devices.NoteAddition(m_device, nullptr);
        m_context.binder.SettleAddition(m_device, m_context.devices.Contains(m_device));
    }
    AdditionSettler(const AdditionSettler&) = delete;
    AdditionSettler& operator=(const AdditionSettler&) = delete;

private:
    GatewayContext& m_context;
    const std::string& m_device;
};

// What the answer to an addition tells.
struct Added {
    std::string plugin;
    std::vector<Device::Lens> lenses;
};

// Makes the device and puts it into the table.
Result AddDevice(GatewayContext& context, const BP::CGvxSessionBase& session, const BP::CCmd& cmd, Added& added) {
    const auto request = std::dynamic_pointer_cast<const DeviceRequest>(cmd.GetAttachment());
    if (request == nullptr) {
        return Failure(ZVS_PARA_INVALID);
    }
    if (context.devices.Contains(request->info.strDevCode)) {
        return Failure(ZVS_GVX_DEV_EXIST);
    }
    std::unique_ptr<Device> device;
    Result result = Device::Create(*request, {cmd.GetNetLinkID(), session.GetReactor()}, device);
    if (result.Failed()) {
        return result;
    }
    added = {device->PluginName(), device->Lenses()};
    result = context.devices.Insert(device);
    if (!result.Failed()) {
        PluginTroubles::Instance().DeviceAdded(request->info.strDevCode);
    }
    return result;
}

void DestroyDevice(GatewayContext& context, std::unique_ptr<Device> device) {
    const std::vector<std::string> streams = device->StreamIDs();
    const std::string code = device->Code();
    device.reset();
    PluginTroubles::Instance().DeviceDeleted(code);
    StreamLedger::Instance().DeviceDeleted(code);
    for (const std::string& serviceID : streams) {
        context.devices.ReleaseStream(serviceID);
    }
}

}  // namespace

int AddMainDevice(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    const std::string code = session.GetRespDevID();
    Added added;
    Result result;
    {
        const AdditionSettler settler(context, code);  // before the answer: the platform may go on at once
        context.devices.NoteAddition(code, session.GetReactor());
        result = AddDevice(context, session, cmd, added);
    }
    if (result.Failed()) {
        GVX_LOG_ERR_CODE("Add device", result.code, "%s [dev:%s]", result.reason.c_str(), code.c_str());
        RefuseXml(cmd, code, result);
        return result.code;
    }
    GVX_LOG_INFO("Add device", "plug-in %s, %zu lenses. [dev:%s]", added.plugin.c_str(), added.lenses.size(),
                 code.c_str());
    AnswerAdded(cmd, code, added.lenses);
    return ZVS_SUCCEED;
}

int DeleteMainDevice(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    const std::string code = session.GetRespDevID();
    std::unique_ptr<Device> device = context.devices.TakeHere(code);
    if (device == nullptr) {
        RefuseXml(cmd, code, Failure(ZVS_GVX_DEV_NOT_EXIST));
        return ZVS_GVX_DEV_NOT_EXIST;
    }
    DestroyDevice(context, std::move(device));
    context.binder.SettleDeletion(code);
    GVX_LOG_INFO("Delete device", "deleted. [dev:%s]", code.c_str());
    CBB::CXml body;
    BeginContent(body, code);
    AnswerXml(cmd, body, ZVS_SUCCEED);
    return ZVS_SUCCEED;
}

int TearDownDevice(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& /*cmd*/) {
    std::unique_ptr<Device> device = context.devices.TakeHere(session.GetRespDevID());
    if (device == nullptr) {
        return ZVS_GVX_DEV_NOT_EXIST;
    }
    DestroyDevice(context, std::move(device));
    return ZVS_SUCCEED;
}

}  // namespace gvx
