#include "gvxctl/alarm_records.h"

#include "nss/nss_msg_type.h"

#include <algorithm>
#include <cstring>

namespace gvxctl {
namespace {

enum class Form { Text, Big32, Big64, Little64 };

struct Row {
    const char* name;
    std::size_t offset;
    std::size_t size;
    Form form;
};

// NSS_ALARM_REPORT_REQ: a device's alarm.
constexpr Row kDeviceRows[] = {
    {"cAlarmInCode", 0, 64, Form::Text}, {"cDevDomainCode", 64, 32, Form::Text}, {"cAlarmType", 96, 64, Form::Text},
    {"cOccurTime", 160, 20, Form::Text}, {"cReportTime", 180, 20, Form::Text},   {"bAction", 200, 4, Form::Big32},
    {"cAlarmID", 204, 32, Form::Text},   {"uiOccurNumber", 236, 4, Form::Big32}, {"cNvrCode", 240, 32, Form::Text},
};

// NSS_DEV_ALARM_REPORT_REQ: an alarm of the gateway itself.
constexpr Row kGatewayRows[] = {
    {"iAlarmEventID", 0, 8, Form::Big64},    {"cFac", 8, 64, Form::Text},
    {"cDomainCode", 72, 32, Form::Text},     {"cNetEleName", 104, 64, Form::Text},
    {"cNetEleID", 168, 32, Form::Text},      {"cAlarmInCode", 200, 64, Form::Text},
    {"cAlarmInName", 264, 256, Form::Text},  {"cAlarmType", 520, 64, Form::Text},
    {"cAlarmInType", 584, 4, Form::Text},    {"cOccurTime", 588, 20, Form::Text},
    {"cLocationInfo", 608, 256, Form::Text},
};

// NSS_GVX_PLUGIN_ALARM_REPORT_REQ. The identifier goes out in the gateway's own byte order, which is little-endian.
constexpr Row kCloudRows[] = {
    {"ulAlarmID", 32, 8, Form::Little64},       {"cNodeCode", 40, 256, Form::Text},
    {"cFrontDeviceCode", 296, 256, Form::Text}, {"cFac", 552, 64, Form::Text},
    {"cDomainCode", 616, 32, Form::Text},       {"cNetElemName", 648, 64, Form::Text},
    {"cNetElemId", 712, 32, Form::Text},        {"cAlarmInCode", 744, 64, Form::Text},
    {"cAlarmInName", 808, 256, Form::Text},     {"cAlarmType", 1064, 64, Form::Text},
    {"cAlarmInType", 1128, 4, Form::Text},      {"cLocationInfo", 1132, 256, Form::Text},
    {"cAlarmDesc", 1388, 1024, Form::Text},
};

struct Layout {
    std::uint16_t type;
    const char* target;
    std::size_t size;  // of the fixed part
    bool pairs;        // description and extension follow it
    const Row* rows;
    std::size_t count;
};

constexpr Layout kLayouts[] = {
    {NSS_ALARM_REPORT_REQ, "SCU", 272, true, kDeviceRows, std::size(kDeviceRows)},
    {NSS_DEV_ALARM_REPORT_REQ, "OMU", 864, true, kGatewayRows, std::size(kGatewayRows)},
    {NSS_GVX_PLUGIN_ALARM_REPORT_REQ, "KSP", 4544, false, kCloudRows, std::size(kCloudRows)},
};

const Layout* LayoutOf(std::uint16_t type) {
    const auto found =
        std::find_if(std::begin(kLayouts), std::end(kLayouts), [type](const Layout& row) { return row.type == type; });
    return found == std::end(kLayouts) ? nullptr : found;
}

std::uint64_t Number(const std::string& body, std::size_t offset, std::size_t size, bool little) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < size; ++i) {
        number = number << 8 | static_cast<unsigned char>(body[offset + (little ? size - 1 - i : i)]);
    }
    return number;
}

Json::Value FieldValue(const std::string& body, const Row& row) {
    switch (row.form) {
        case Form::Big32:
            return Json::Value(static_cast<Json::Value::UInt>(Number(body, row.offset, row.size, false)));
        case Form::Big64:
            return Json::Value(static_cast<Json::Value::Int64>(Number(body, row.offset, row.size, false)));
        case Form::Little64:
            return Json::Value(static_cast<Json::Value::UInt64>(Number(body, row.offset, row.size, true)));
        case Form::Text:
            break;
    }
    const char* text = body.data() + row.offset;
    return Json::Value(std::string(text, ::strnlen(text, row.size)));
}

// A tag, a length and as many bytes of text.
bool ReadPair(const std::string& body, std::size_t& place, std::uint16_t tag, std::string& text, std::string& error) {
    if (body.size() - place < kNssTlvHeadBytes) {
        error = "the item of tag " + std::to_string(tag) + " is missing";
        return false;
    }
    const std::uint64_t found = Number(body, place, 2, false);
    const std::uint64_t length = Number(body, place + 2, 4, false);
    place += kNssTlvHeadBytes;
    if (found != tag || length > body.size() - place) {
        error = "an item of tag " + std::to_string(found) + " and " + std::to_string(length) + " bytes where tag " +
                std::to_string(tag) + " and at most " + std::to_string(body.size() - place) + " bytes can stand";
        return false;
    }
    text.assign(body, place, length);
    place += length;
    return true;
}

bool ReadPairs(const Frame& frame, std::size_t place, Alarm& alarm, std::string& error) {
    std::string description;
    std::string extension;
    if (!ReadPair(frame.body, place, NSS_TAG_ALARM_DESC, description, error) ||
        !ReadPair(frame.body, place, NSS_TAG_EXT_PARAM, extension, error)) {
        return false;
    }
    alarm.fields.push_back({"cAlarmDesc", Json::Value(description)});
    alarm.fields.push_back({"cExtParam", Json::Value(extension)});
    return true;
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

std::string Alarm::Text(const std::string& name) const {
    for (const AlarmField& field : fields) {
        if (name == field.name) {
            return field.value.asString();
        }
    }
    return std::string();
}

std::string Alarm::Action() const {
    const std::string action = Text("bAction");
    const std::string type = Text("cAlarmType");
    if (!action.empty()) {
        return action == "0" ? "ended" : "began";
    }
    return EndsWith(type, "_ON") ? "began" : EndsWith(type, "_OFF") ? "ended" : "";
}

bool IsAlarmFrame(const Frame& frame) {
    return LayoutOf(frame.Type()) != nullptr;
}

bool DecodeAlarm(const Frame& frame, Alarm& alarm, std::string& error) {
    const Layout* layout = LayoutOf(frame.Type());
    if (layout == nullptr) {
        error = std::string(NssMsgTypeName(frame.Type())) + " carries no alarm";
        return false;
    }
    if (frame.body.size() < layout->size) {
        error =
            "the record has " + std::to_string(frame.body.size()) + " bytes instead of " + std::to_string(layout->size);
        return false;
    }
    alarm = Alarm{};
    alarm.target = layout->target;
    std::for_each(layout->rows, layout->rows + layout->count, [&](const Row& row) {
        alarm.fields.push_back({row.name, FieldValue(frame.body, row)});
    });
    return !layout->pairs || ReadPairs(frame, layout->size, alarm, error);
}

std::string AlarmLine(const Alarm& alarm) {
    const std::string action = alarm.Action();
    const std::string id = alarm.Text("ulAlarmID");
    const std::string location = alarm.Text("cLocationInfo");
    const std::string time = alarm.Text("cOccurTime");
    const std::string description = alarm.Text("cAlarmDesc");
    return std::string(alarm.target) + "  " + (action.empty() ? "raised" : action) + "  " + alarm.Text("cAlarmType") +
           (id.empty() ? "" : " (" + id + ")") + "  from " + alarm.Text("cAlarmInCode") +
           (time.empty() ? "" : " at " + time) + (location.empty() ? "" : " [" + location + "]") +
           (description.empty() ? "" : ": " + description);
}

std::string AlarmFields(const Alarm& alarm, const std::string& indent) {
    std::string text;
    for (const AlarmField& field : alarm.fields) {
        const std::string value = field.value.asString();
        if (!value.empty()) {
            text += (text.empty() ? "" : "\n") + indent + field.name + " = " + value;
        }
    }
    return text;
}

Json::Value AlarmToJson(const Alarm& alarm) {
    Json::Value value;
    value["target"] = alarm.target;
    value["action"] = alarm.Action();
    for (const AlarmField& field : alarm.fields) {
        value["fields"][field.name] = field.value;
    }
    return value;
}

}  // namespace gvxctl
