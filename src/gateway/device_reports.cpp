#include "gateway/device_reports.h"

#include "base/log.h"
#include "bp/cmd.h"
#include "bp/message_block_ptr.h"
#include "gateway/device_table.h"
#include "gvx_common/event/gvx_internal_request.h"
#include "gvx_common/event/gvx_reactor.h"

#include <cstring>
#include <mutex>

namespace gvx {

namespace {

std::mutex g_mutex;
DeviceTable* g_devices = nullptr;  // Guarded by g_mutex.

CGvxReactor* ReactorOf(const std::string& device) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    return g_devices == nullptr ? nullptr : g_devices->ReactorOf(device);
}

const char* LinkEventText(LINKCLOSE_NET_ELE_E event) {
    switch (event) {
        case NET_ELE_SCU_CLOSE:
            return "SCU closed";
        case NET_ELE_MU:
            return "MU closed";
        case NET_ELE_OMU:
            return "OMU closed";
        case NET_ELE_SCU_OPEN:
            return "SCU opened";
        case NET_ELE_IMGU:
            return "IMGU closed";
        default:
            return "unknown";
    }
}

}  // namespace

void SetReportDevices(DeviceTable* devices) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_devices = devices;
}

bool PushReport(const ADAPTER_COMMON_MESSAGE& message, const std::string& text) {
    const std::string device(message.chDevId, strnlen(message.chDevId, sizeof(message.chDevId)));
    CGvxReactor* reactor = ReactorOf(device);
    BP::MessageBlockPtr block = reactor == nullptr ? nullptr : BP::MakeMessageBlock(sizeof(message) + text.size());
    if (block == nullptr || block->copy(reinterpret_cast<const char*>(&message), sizeof(message)) != 0 ||
        block->copy(text.data(), text.size()) != 0) {
        GVX_LOG_WARN("Device report", "[dev:%s] report of type %u is lost.", device.c_str(), message.ExceptionType);
        return false;
    }
    BP::CCmd cmd;
    cmd.SetReqID(GVX_INTERNAL_REQ_SDK_EXCEPTION);
    cmd.SetTimestamp(BP::OSTime::Time());
    cmd.SetMsgBlock(block.release());
    CGvxNssCmd entry;
    entry.m_pCmd = &cmd;  // the queue takes a clone
    entry.m_tRecvTime = cmd.GetTimestamp();
    entry.m_devID = device;
    if (reactor->PushMessage(entry) != 0) {
        GVX_LOG_WARN("Device report", "[dev:%s] report of type %u is refused.", device.c_str(), message.ExceptionType);
        return false;
    }
    return true;
}

void OnPluginReport(ADAPTER_COMMON_MESSAGE& message) {
    PushReport(message, std::string());
}

void OnLinkReport(ADAPTER_COMMON_MESSAGE& message) {
    GVX_LOG_INFO("Link event", "%s, link[%.40s]", LinkEventText(message.eLinkCloseNetEle), message.chNetEleLinkId);
}

}  // namespace gvx
