#include "gateway/requests/device_work.h"

#include "base/cbb_xml.h"
#include "base/log.h"
#include "bp/session.h"
#include "gateway/alarms/plugin_troubles.h"
#include "gateway/devices/device_request.h"
#include "gateway/messages/answer.h"
#include "gateway/requests/gateway_context.h"
#include "gateway/streams/stream_ledger.h"

#include <exception>
#include <utility>

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

// The stretch in which a device is made, of which its plug-in may report already. At its end the addition is settled.
class AdditionScope {
public:
    AdditionScope(GatewayContext& context, Addition& addition, CGvxReactor* reactor)
        : m_context(context), m_addition(addition) {
        m_context.devices.NoteAddition(m_addition.info.strDevCode, reactor);
    }
    ~AdditionScope() {
        m_context.devices.NoteAddition(m_addition.info.strDevCode, nullptr);
        m_addition.Settle();
    }
    AdditionScope(const AdditionScope&) = delete;
    AdditionScope& operator=(const AdditionScope&) = delete;

private:
    GatewayContext& m_context;
    Addition& m_addition;
};

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

// Makes the device, puts it into the table and tells its sender so. A failure is for the caller to answer, once the
// addition is settled: the platform may go on at once.
Result AddDevice(GatewayContext& context, const BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    const auto addition = std::dynamic_pointer_cast<Addition>(cmd.GetAttachment());
    if (addition == nullptr) {
        return Failure(ZVS_PARA_INVALID);
    }
    const std::string& code = addition->info.strDevCode;
    const AdditionScope scope(context, *addition, session.GetReactor());
    if (context.devices.Contains(code)) {
        return Failure(ZVS_GVX_DEV_EXIST);
    }
    std::unique_ptr<Device> device;
    Result result = Device::Create(*addition, {cmd.GetNetLinkID(), session.GetReactor()}, device);
    if (result.Failed()) {
        return result;
    }
    const std::string plugin = device->PluginName();
    const std::vector<Device::Lens> lenses = device->Lenses();
    result = context.devices.Insert(device);
    if (result.Failed()) {
        return result;
    }
    try {
        PluginTroubles::Instance().DeviceAdded(code);
        GVX_LOG_INFO("Add device", "plug-in %s, %zu lenses. [dev:%s]", plugin.c_str(), lenses.size(), code.c_str());
        AnswerAdded(cmd, code, lenses);
    } catch (const std::exception& fault) {  // the request is refused, and nobody would delete the device
        GVX_LOG_ERR("Add device", "taken out again, its answer failed: %s [dev:%s]", fault.what(), code.c_str());
        DestroyDevice(context, context.devices.TakeHere(code));
        throw;
    }
    return result;
}

}  // namespace

Addition::Addition(GatewayContext& context, std::string key)
    : m_context(context.weak_from_this()), m_key(std::move(key)) {}

void Addition::Settle() noexcept {
    if (!std::exchange(m_bound, false)) {
        return;
    }
    if (const std::shared_ptr<GatewayContext> context = m_context.lock()) {
        context->binder.SettleAddition(m_key, context->devices.Contains(m_key));
    }
}

int AddMainDevice(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
    const Result result = AddDevice(context, session, cmd);
    if (result.Failed()) {
        const std::string& code = session.GetRespDevID();
        GVX_LOG_ERR_CODE("Add device", result.code, "%s [dev:%s]", result.reason.c_str(), code.c_str());
        RefuseXml(cmd, code, result);
    }
    return result.code;
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
