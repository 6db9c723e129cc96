#pragma once

#include "gvx_common/adapter/gvx_adapter_dev.h"
#include "gvx_common/adapter/gvx_adapter_lens.h"
#include "gvx_common/forms/request_arguments.h"

// Calls of request_table.inc that are more than one operation with its records: which operation a request means, and
// the change of its lists into the containers of the contract. Each gives the plug-in's code. On the device's thread.
namespace gvx {

int ChangeDevice(CAdapterDevBase& device, const DeviceChange& change);
int ReadAbility(CAdapterDevBase& device, const AbilityQuestion& question, AbilityAnswer& answer);
int SendToDevice(CAdapterDevBase& device, const JsonMessage& message);
int SendToLens(CAdapterLensBase& lens, const JsonMessage& message, JsonAnswer& answer);

int ListExternDevices(CAdapterDevBase& device, ExternDevices& devices);
int SetExternDevices(CAdapterDevBase& device, ExternDevices& devices);
int AddExternDevices(CAdapterDevBase& device, ExternDevices& devices);

// lens is null where the request names none.
int SetGuard(CAdapterDevBase& device, CAdapterLensBase* lens, const GuardArguments& guard);
int Locate(CAdapterDevBase& device, const LocateArguments& place, LocateAnswer& answer);
int RunFunction(CAdapterLensBase& lens, FunctionArguments& function, MASTER_SLAVE_CALIBRATION_STATUS_PARA& status);

int ControlPtz(CAdapterLensBase& lens, const MSG_PTZ_CTRL_REQ& control);
int SetAutoscanBoundary(CAdapterLensBase& lens, const AutoscanBoundary& boundary);

int SetRecordPlan(CAdapterLensBase& lens, const RecordPlan& plan);
int GetRecordPlan(CAdapterLensBase& lens, RecordPlan& plan);
int SetRecordStream(CAdapterLensBase& lens, const RecordStream& stream);

}  // namespace gvx
