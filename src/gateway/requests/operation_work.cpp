#include "gateway/requests/operation_work.h"

#include "base/json_io.h"
#include "base/log.h"
#include "bp/session.h"
#include "gateway/messages/answer.h"
#include "gateway/messages/request_body.h"
#include "gateway/plugins/plugin_guard.h"
#include "gateway/requests/gateway_context.h"
#include "gateway/requests/operation_calls.h"
#include "gvx_common/forms/record_forms.h"
#include "gvx_common/forms/request_table.h"
#include "nss/nss_msg_type.h"

#include <memory>

namespace gvx {

namespace {

constexpr std::size_t kMaxAnswerBytes = kMaxRequestBodyBytes;  // a link closes at a frame beyond its own limit

// Whom an operation concerns; what a row's form does not name is null.
struct OperationTarget {
    std::string plugin;  // its name
    CAdapterSdkBase* sdk = nullptr;
    CAdapterDevBase* device = nullptr;
    CAdapterLensBase* lens = nullptr;
    std::string lensCode;  // of a lens that the answer names
};

// The records of one call.
class Arguments {
public:
    virtual ~Arguments() = default;
    virtual void* Request() = 0;
    virtual void* Answer() = 0;
};

template <typename Read, typename Written>
class ArgumentsOf : public Arguments {
public:
    void* Request() override { return &request; }
    void* Answer() override { return &answer; }

    Read request{};
    Written answer{};
};

template <typename Read, typename Written>
std::unique_ptr<Arguments> MakeArguments() {
    return std::make_unique<ArgumentsOf<Read, Written>>();
}

struct OperationRow {
    std::uint32_t reqID;
    const char* name;
    RequestScope scope;
    const RecordForm& (*request)();
    const RecordForm& (*answer)();
    std::unique_ptr<Arguments> (*make)();
    int (*call)(const OperationTarget& target, Arguments& arguments);
};

#define GVX_OPERATION_ROW(number, kind, Read, Written, names, call)                                    \
    {number,                                                                                           \
     #number,                                                                                          \
     kind,                                                                                             \
     &FormOf<Read>,                                                                                    \
     &FormOf<Written>,                                                                                 \
     &MakeArguments<Read, Written>,                                                                    \
     [](const OperationTarget& target, Arguments& arguments) -> int {                                  \
         [[maybe_unused]] auto& request = static_cast<ArgumentsOf<Read, Written>&>(arguments).request; \
         [[maybe_unused]] auto& answer = static_cast<ArgumentsOf<Read, Written>&>(arguments).answer;   \
         names return call;                                                                            \
     }},
#define GVX_PLUGIN_REQUEST(number, command, verb, Read, Written, call, sentence) \
    GVX_OPERATION_ROW(number, RequestScope::Plugin, Read, Written, CAdapterSdkBase& sdk = *target.sdk;, call)
#define GVX_DEVICE_REQUEST(number, command, verb, Read, Written, call, sentence)                             \
    GVX_OPERATION_ROW(number, RequestScope::Device, Read, Written, CAdapterDevBase& device = *target.device; \
                      [[maybe_unused]] CAdapterLensBase* const lens = target.lens;, call)
#define GVX_LENS_REQUEST(number, command, verb, Read, Written, call, sentence) \
    GVX_OPERATION_ROW(number, RequestScope::Lens, Read, Written, CAdapterLensBase& lens = *target.lens;, call)

constexpr OperationRow kOperations[] = {
#include "gvx_common/forms/request_table.inc"
};

#undef GVX_PLUGIN_REQUEST
#undef GVX_DEVICE_REQUEST
#undef GVX_LENS_REQUEST
#undef GVX_OPERATION_ROW

// A body for a scope: it may carry a password.
struct ScopedBody {
    Json::Value json;
    ScopedBody() = default;
    ~ScopedBody() { WipeJson(json); }
    ScopedBody(const ScopedBody&) = delete;
    ScopedBody& operator=(const ScopedBody&) = delete;
};

// Records for a scope, for the same reason.
class ScopedArguments {
public:
    explicit ScopedArguments(const OperationRow& row) : m_row(row), m_arguments(row.make()) {}
    ~ScopedArguments() {
        WipeRecord(m_row.request(), m_arguments->Request());
        WipeRecord(m_row.answer(), m_arguments->Answer());
    }
    ScopedArguments(const ScopedArguments&) = delete;
    ScopedArguments& operator=(const ScopedArguments&) = delete;

    Arguments& Get() { return *m_arguments; }

private:
    const OperationRow& m_row;
    std::unique_ptr<Arguments> m_arguments;
};

Result FindPlugin(const GatewayContext& context, const Json::Value& body, OperationTarget& target) {
    target.plugin = JsonText(body, "PluginName");
    LoadedPlugin* const plugin = context.plugins.Find(target.plugin);
    if (plugin == nullptr) {
        return Failure(ZVS_GVX_PLUGIN_NOT_EXIST);
    }
    target.sdk = &plugin->Sdk();
    return {};
}

Result FindDevice(const GatewayContext& context, const OperationRow& row, const std::string& code,
                  const Json::Value& body, OperationTarget& target) {
    const Device* const device = context.devices.FindHere(code);
    if (device == nullptr) {
        return Failure(ZVS_GVX_DEV_NOT_EXIST);
    }
    target.plugin = device->PluginName();
    target.device = &device->Adapter();
    const Json::Value lensCode = body.get("LensCode", "");
    if (!lensCode.isString()) {
        return {ZVS_PARA_INVALID, "LensCode is no text."};
    }
    const Device::Lens* const lens = device->FindLens(lensCode.asString());
    if (lens == nullptr) {
        const bool needed = row.scope == RequestScope::Lens || !lensCode.asString().empty();
        return needed ? Failure(ZVS_GVX_LENS_NOT_EXIST) : Result{};
    }
    target.lens = lens->adapter;
    if (row.scope == RequestScope::Lens) {
        target.lensCode = lens->code;
    }
    return {};
}

Result RunOperation(GatewayContext& context, const OperationRow& row, const std::string& device, const BP::CCmd& cmd,
                    Json::Value& answer) {
    ScopedBody body;
    if (!ReadJsonObject(cmd, body.json)) {
        return {ZVS_PARA_INVALID, "There is no JSON body."};
    }
    OperationTarget target;
    Result result = row.scope == RequestScope::Plugin ? FindPlugin(context, body.json, target)
                                                      : FindDevice(context, row, device, body.json, target);
    if (row.scope == RequestScope::Plugin) {
        answer["PluginName"] = target.plugin;
    } else {
        answer["DevCode"] = device;
    }
    if (!target.lensCode.empty()) {
        answer["LensCode"] = target.lensCode;
    }
    if (result.Failed()) {
        return result;
    }
    ScopedArguments arguments(row);
    if (!ReadRecord(row.request(), body.json, arguments.Get().Request(), result.reason)) {
        result.code = ZVS_PARA_INVALID;
        return result;
    }
    std::string said;
    const int code = CallPlugin(
        target.plugin, row.name, device, [&] { return row.call(target, arguments.Get()); }, &said);
    if (code != ZVS_SUCCEED) {
        return Failure(code, std::string(), said);
    }
    Json::Value whole = answer;
    WriteRecord(row.answer(), arguments.Get().Answer(), whole);
    if (WriteJson(whole).size() > kMaxAnswerBytes) {
        return {ZVS_FAIL, "The answer is longer than 1 MiB: ask for less."};
    }
    answer.swap(whole);
    return {};
}

int ServeOperation(GatewayContext& context, const OperationRow& row, const BP::CGvxSessionBase& session,
                   const BP::CCmd& cmd) {
    const std::string device = session.GetRespDevID();
    Json::Value answer(Json::objectValue);
    const Result result = RunOperation(context, row, device, cmd, answer);
    if (result.Failed()) {
        GVX_LOG_ERR_CODE("Request refused", result.code, "%s: %s [dev:%s]", row.name, result.reason.c_str(),
                         device.c_str());
        RefuseJson(cmd, std::move(answer), result);
        return result.code;
    }
    AnswerJson(cmd, answer, ZVS_SUCCEED);
    return ZVS_SUCCEED;
}

}  // namespace

void ForEachOperation(const std::function<void(std::uint32_t reqID, OperationWork work)>& add) {
    for (const OperationRow& row : kOperations) {
        add(row.reqID, [&row](GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
            return ServeOperation(context, row, session, cmd);
        });
    }
}

}  // namespace gvx
