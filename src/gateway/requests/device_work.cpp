#include "gateway/requests/gateway_work.h"

#include "base/cbb_xml.h"
#include "base/log.h"
#include "bp/session.h"
#include "gateway/devices/device_addition.h"
#include "gateway/messages/answer.h"
#include "gateway/requests/gateway_context.h"

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

// 0 and the device, not yet in the table; or a code with a sentence.
int MakeDevice(GatewayContext& context, const BP::CGvxSessionBase& session, const BP::CCmd& cmd,
               std::unique_ptr<Device>& device, std::string& reason) {
    DeviceRequest request;
    LoadedPlugin* plugin = nullptr;
    const int code = ReadAddition(context.plugins, cmd, request, plugin, reason);
    if (code != ZVS_SUCCEED) {
        return code;
    }
    if (context.devices.Contains(request.info.strDevCode)) {
        reason = ReasonOf(ZVS_GVX_DEV_EXIST);
        return ZVS_GVX_DEV_EXIST;
    }
    const Device::Place place{cmd.GetNetLinkID(), session.GetReactor()};
    return Device::Create(*plugin, request, place, device, reason);
}

// Settles an addition however its work ends: the key would stay bound for ever otherwise.
class AdditionSettler {
public:
    AdditionSettler(GatewayContext& context, const std::string& device) : m_context(context), m_device(device) {}
    ~AdditionSettler() { m_context.binder.SettleAddition(m_device, m_context.devices.Contains(m_device)); }
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

// Puts the device into the table. 0, or a code with a sentence.
int AddDevice(GatewayContext& context, const BP::CGvxSessionBase& session, const BP::CCmd& cmd, Added& added,
              std::string& reason) {
    std::unique_ptr<Device> device;
    const int code = MakeDevice(context, session, cmd, device, reason);
    if (code != ZVS_SUCCEED) {
        return code;
    }
    added = {device->PluginName(), device->Lenses()};
    if (context.devices.Insert(device)) {
        return ZVS_SUCCEED;
    }
    reason = "The gateway stops.";  // the table closed while the device was made
    return ZVS_FAIL;
}

void DestroyDevice(GatewayContext& context, std::unique_ptr<Device> device) {
    const std::vector<std::string> streams = device->StreamIDs();
    device.reset();
    for (const std::string& serviceID : streams) {
        context.devices.ReleaseStream(serviceID);
    }
}

}  // namespace

int AddMainDevice(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    const std::string code = session.GetRespDevID();
    Added added;
    std::string reason;
    int result = ZVS_FAIL;
    {
        const AdditionSettler settler(context, code);  // before the answer: the platform may go on at once
        result = AddDevice(context, session, cmd, added, reason);
    }
    if (result != ZVS_SUCCEED) {
        GVX_LOG_ERR_CODE("Add device", result, "%s [dev:%s]", reason.c_str(), code.c_str());
        RefuseXml(cmd, code, result, reason);
        return result;
    }
    GVX_LOG_INFO("Add device", "plug-in %s, %zu lenses. [dev:%s]", added.plugin.c_str(), added.lenses.size(),
                 code.c_str());
    AnswerAdded(cmd, code, added.lenses);
    return result;
}

int DeleteMainDevice(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    const std::string code = session.GetRespDevID();
    std::unique_ptr<Device> device = context.devices.TakeHere(code);
    if (device == nullptr) {
        RefuseXml(cmd, code, ZVS_GVX_DEV_NOT_EXIST, ReasonOf(ZVS_GVX_DEV_NOT_EXIST));
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
