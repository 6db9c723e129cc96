#include "gvxctl/frame_text.h"

#include "base/json_io.h"
#include "base/zvs_error.h"
#include "gvxctl/alarm_records.h"
#include "gvxctl/terminal.h"
#include "nss/nss_msg.h"
#include "nss/nss_msg_type.h"

#include <json/value.h>

#include <algorithm>
#include <cstdio>

namespace gvxctl {
namespace {

constexpr std::size_t kHexBytes = 64;
constexpr std::size_t kLineBytes = 200;

const char* TagName(std::uint16_t tag) {
    static constexpr const char* kNames[] = {"?",         "XML",       "user", "attachment", "alarm description",
                                             "extension", "operation", "JSON"};
    return tag < std::size(kNames) ? kNames[tag] : kNames[0];
}

std::uint32_t BigEndian(const std::string& bytes, std::size_t place, std::size_t size) {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < size; ++i) {
        number = number << 8 | static_cast<unsigned char>(bytes[place + i]);
    }
    return number;
}

std::string Hex(const std::string& bytes) {
    std::string text = std::to_string(bytes.size()) + " bytes:";
    char byte[4];
    for (std::size_t i = 0; i < std::min(bytes.size(), kHexBytes); ++i) {
        std::snprintf(byte, sizeof byte, " %02x", static_cast<unsigned char>(bytes[i]));
        text += byte;
    }
    return text + (bytes.size() > kHexBytes ? " ..." : "");
}

// The body as a run of items of known tags; empty when it is none.
std::string Items(const std::string& body) {
    std::string text;
    for (std::size_t place = 0; place < body.size();) {
        if (body.size() - place < kNssTlvHeadBytes) {
            return std::string();
        }
        const std::uint32_t tag = BigEndian(body, place, 2);
        const std::uint32_t length = BigEndian(body, place + 2, 4);
        place += kNssTlvHeadBytes;
        if (tag == 0 || tag >= NSS_TAG_INVALID || length > body.size() - place) {
            return std::string();
        }
        text += (text.empty() ? "" : "\n    ") + std::string(TagName(static_cast<std::uint16_t>(tag))) + ": " +
                Printable(body.substr(place, length));
        place += length;
    }
    return text;
}

bool IsJson(const std::string& text) {
    Json::Value value;
    return !text.empty() && (text[0] == '{' || text[0] == '[') &&
           gvx::ParseJson(text.data(), text.size(), value, nullptr);
}

bool ContentItem(const Frame& frame, std::string& text) {
    return frame.Item(NSS_TAG_XML_CONTENT, text) || frame.Item(NSS_TAG_JSON_CONTENT, text);
}

std::string AlarmText(const Frame& frame) {
    Alarm alarm;
    std::string error;
    return DecodeAlarm(frame, alarm, error) ? Printable(AlarmFields(alarm, "    ")).substr(4) : "bad alarm: " + error;
}

}  // namespace

std::string BodyText(const Frame& frame) {
    std::string text;
    if (IsAlarmFrame(frame)) {
        return AlarmText(frame);
    }
    if (frame.body.empty() || ContentItem(frame, text) || IsJson(frame.body)) {
        return Printable(text.empty() ? frame.body : text);
    }
    text = Items(frame.body);
    return text.empty() ? Hex(frame.body) : text;
}

std::string BodyContent(const Frame& frame) {
    std::string text;
    return ContentItem(frame, text) ? text : frame.body;
}

std::string TypeText(std::uint16_t type) {
    std::size_t count = 0;
    const NssMsgTypeRow* rows = NssMsgTypeRows(count);
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        if (rows[i].value == type) {
            text += (text.empty() ? "" : "/") + std::string(rows[i].name);
        }
    }
    return text.empty() ? NssMsgTypeName(type) : text;
}

std::string CodeText(std::uint32_t code) {
    return std::to_string(code) + " " + ZvsErrorName(static_cast<int>(code));
}

std::string DescribeFrame(const Frame& frame) {
    char head[512];
    std::snprintf(head, sizeof head,
                  "%s 0x%04X seq=%u trace=%u code=%s length=%u trans=", TypeText(frame.Type()).c_str(), frame.Type(),
                  frame.head.uiSeqID, frame.head.uiTraceID, CodeText(frame.head.uiRspCode).c_str(),
                  frame.head.uiPacketLength);
    const std::string body = BodyText(frame);
    return head + Printable(frame.Transaction()) + (body.empty() ? "" : "\n    " + body);
}

std::string FrameLine(const Frame& frame) {
    char type[8];
    std::snprintf(type, sizeof type, "0x%04X", frame.Type());
    Alarm alarm;
    std::string error;
    std::string body = DecodeAlarm(frame, alarm, error) ? AlarmLine(alarm) : BodyText(frame);
    std::replace(body.begin(), body.end(), '\n', ' ');
    return TypeText(frame.Type()) + " " + type +
           (frame.IsResponse() ? " code " + CodeText(frame.head.uiRspCode) : std::string()) +
           (body.empty() ? "" : "  " + Printable(body, kLineBytes));
}

}  // namespace gvxctl
