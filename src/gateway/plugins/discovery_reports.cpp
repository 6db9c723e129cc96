#include "gateway/plugins/discovery_reports.h"

#include "base/fixed_text.h"
#include "base/json_io.h"
#include "base/log.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "gvx_common/records/gvx_discovery_records.h"

#include <algorithm>

namespace gvx {

namespace {

constexpr int kMostDevices = 200;

Json::Value Describe(const DeviceDiscoveryInfo& device) {
    Json::Value row(Json::objectValue);
    row["IP"] = TextOf(device.szIp);
    row["Port"] = device.uiPort;
    row["Maker"] = TextOf(device.szFac);
    row["Model"] = TextOf(device.szType);
    row["SerialNumber"] = TextOf(device.szSerialNumber);
    row["Protocol"] = static_cast<int>(device.enProtocol);
    return row;
}

}  // namespace

void OnDiscoveryReport(CDiscoveryDeviceInfo* info) {
    GVX_CHECK_NULL_RETURN_VOID(info);
    auto device = info->DiscDevInfoList.begin();
    do {
        Json::Value body(Json::objectValue);
        Json::Value& devices = body["Devices"] = Json::Value(Json::arrayValue);
        for (int count = 0; device != info->DiscDevInfoList.end() && count < kMostDevices; ++device, ++count) {
            devices.append(Describe(*device));
        }
        const bool last = device == info->DiscDevInfoList.end();
        body["ServerCode"] = info->strServerCode;
        body["Protocol"] = static_cast<int>(info->enProtocolType);
        body["Percent"] = last ? info->iPercent : std::min(info->iPercent, 99);
        if (CGvxConnectionMgr::Instance()->SendRetMsgWithJson(NSS_DISCOVERED_DEVICE_NOTIFY_REQ, WriteJson(body),
                                                              kElementGVX, info->strSCULinkID, info->strTransID) != 0) {
            GVX_LOG_WARN("Search", "A report of %u devices at %d percent is lost.", devices.size(), info->iPercent);
        }
    } while (device != info->DiscDevInfoList.end());
}

}  // namespace gvx
