#pragma once

#include "gateway/devices/device_request.h"
#include "gateway/requests/work_parts.h"

#include <memory>
#include <string>

namespace gvx {

// What the command of an addition carries: what was read of its request, and the binding of its key, which is settled
// once, by the work or else with the last of the command, whatever has become of that. On one thread at a time.
class Addition : public DeviceRequest {
public:
    Addition(GatewayContext& context, std::string key);
    ~Addition() override { Settle(); }
    Addition(const Addition&) = delete;
    Addition& operator=(const Addition&) = delete;

    // The binder has bound the key for this addition.
    void NoteBound() noexcept { m_bound = true; }
    void Settle() noexcept;

private:
    const std::weak_ptr<GatewayContext> m_context;
    const std::string m_key;
    bool m_bound = false;
};

// The work of requests about devices, on the thread of the device's reactor (gateway_work.h). Refusals carry DevCode
// and Reason.

// NSS_ADD_MAIN_DEV_REQ: makes the device and its lenses, which the answer lists. The sink has read the request and
// attached it to the command. ZVS_GVX_DEV_EXIST where the device is there already, else the code of the plug-in's step
// that failed. A device whose answer finds no memory is taken out again, since its sender hears of a failure.
int AddMainDevice(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
// NSS_DEL_MAIN_DEV_REQ: stops the device's streams and deletes it, whatever its plug-in answers. ZVS_GVX_DEV_NOT_EXIST
// where there is none.
int DeleteMainDevice(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);
// GVX_INTERNAL_REQ_DELETE, which goes ahead of all waiting commands of its device and purges them. It comes from
// ourselves alone, when the process stops, and is not answered.
int TearDownDevice(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);

}  // namespace gvx
