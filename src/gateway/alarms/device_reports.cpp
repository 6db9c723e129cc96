#include "gateway/alarms/device_reports.h"

#include "base/fixed_text.h"
#include "base/log.h"
#include "bp/cmd.h"
#include "bp/message_block_ptr.h"
#include "gateway/alarms/plugin_troubles.h"
#include "gvx_common/event/gvx_reactor.h"

#include <cstring>
#include <mutex>
#include <utility>

namespace gvx {

namespace {

constexpr std::size_t kMaxReportBytes = 16384;

std::mutex g_mutex;
std::function<CGvxReactor*(const std::string&)> g_reactorOf;  // Guarded by g_mutex.

CGvxReactor* ReactorOf(const std::string& device) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    return g_reactorOf ? g_reactorOf(device) : nullptr;
}

// A plug-in reports for a device that is not there, or not any more.
bool IsLate(const std::string& device, const char* what) {
    if (ReactorOf(device) != nullptr) {
        return false;
    }
    if (PluginTroubles::Instance().Note(PluginTrouble::Kind::CallsLate, "-", what, device)) {
        GVX_LOG_WARN("Device report", "%s for %.40s is lost, there is no such device.", what, device.c_str());
    }
    return true;
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

void SetReportReactors(std::function<CGvxReactor*(const std::string&)> reactorOf) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_reactorOf = std::move(reactorOf);
}

bool PushReport(const ADAPTER_COMMON_MESSAGE& message, const std::string& text) {
    const std::string device = TextOf(message.chDevId);
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
        GVX_DEBUG("[dev:%s] report of type %u is refused.", device.c_str(), message.ExceptionType);
        return false;
    }
    return true;
}

void OnPluginReport(ADAPTER_COMMON_MESSAGE& message) {
    if (!IsLate(TextOf(message.chDevId), "a report")) {
        PushReport(message, std::string());
    }
}

void OnPluginAlarm(const char* devID, const char* json) {
    GVX_CHECK_NULL_RETURN_VOID(devID);
    GVX_CHECK_NULL_RETURN_VOID(json);
    ADAPTER_COMMON_MESSAGE message{};
    const std::size_t length = strnlen(json, kMaxReportBytes + 1);
    const bool fits = PutText(message.chDevId, devID);
    if (fits && IsLate(devID, "an alarm")) {
        return;
    }
    if (!fits || length == 0 || length > kMaxReportBytes || !PushReport(message, std::string(json, length))) {
        GVX_LOG_ERR("Device alarm", "[dev:%.40s] an alarm of %zu bytes is lost.", devID, length);
    }
}

void OnLinkReport(ADAPTER_COMMON_MESSAGE& message) {
    GVX_LOG_INFO("Link event", "%s, link[%.40s]", LinkEventText(message.eLinkCloseNetEle), message.chNetEleLinkId);
}

}  // namespace gvx
