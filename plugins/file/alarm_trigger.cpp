#include "file/alarm_trigger.h"

#include "base/json_io.h"

namespace gvxfile {
namespace {

constexpr long long kMaxChannel = 32767;

bool ReadChannel(const Json::Value& root, AlarmTrigger& trigger) {
    if (!root.isMember("channel")) {
        return true;
    }
    const long long channel = gvx::JsonInt(root, "channel", -1);
    trigger.channel = static_cast<int>(channel);
    return channel >= 0 && channel <= kMaxChannel;
}

}  // namespace

bool ReadAlarmTrigger(const std::string& line, AlarmTrigger& trigger, std::string& error) {
    Json::Value root;
    std::string reason;
    if (!gvx::ParseJson(line.data(), line.size(), root, &reason) || !root.isObject()) {
        error = "It is no JSON object" + (reason.empty() ? std::string(".") : ": " + reason);
        return false;
    }
    trigger.device = gvx::JsonText(root, "device");
    trigger.code = gvx::JsonText(root, "code");
    trigger.hasAction = root.isMember("action");
    trigger.action = gvx::JsonText(root, "action");
    trigger.description = gvx::JsonText(root, "description");
    if (trigger.device.empty() || trigger.code.empty()) {
        error = trigger.device.empty() ? "It names no \"device\"." : "It names no \"code\".";
        return false;
    }
    if (!ReadChannel(root, trigger)) {
        error = "Its \"channel\" is not one of 0 to " + std::to_string(kMaxChannel) + ".";
        return false;
    }
    return true;
}

}  // namespace gvxfile
