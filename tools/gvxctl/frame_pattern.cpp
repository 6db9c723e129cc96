#include "gvxctl/frame_pattern.h"

#include "base/cbb_xml.h"
#include "base/json_io.h"
#include "gvxctl/alarm_records.h"
#include "gvxctl/frame_text.h"
#include "gvxctl/terminal.h"

#include <algorithm>

namespace gvxctl {
namespace {

using TextRows = std::vector<std::pair<std::string, std::string>>;

void ReadTexts(MemberReader& reader, const char* name, TextRows& rows) {
    const Json::Value* object = reader.Object(name);
    if (object == nullptr) {
        return;
    }
    for (const std::string& member : object->getMemberNames()) {
        const Json::Value& value = (*object)[member];
        if (!value.isString() && !value.isIntegral()) {
            return reader.Fail(std::string("\"") + name + "\": \"" + member + "\" is neither text nor number");
        }
        rows.emplace_back(member, value.asString());
    }
}

bool FieldsMatch(const Frame& frame, const TextRows& rows) {
    Alarm alarm;
    std::string error;
    return rows.empty() ||
           (DecodeAlarm(frame, alarm, error) && std::all_of(rows.begin(), rows.end(), [&](const auto& row) {
                return MatchesText(row.second, alarm.Text(row.first));
            }));
}

bool XmlMatches(const Frame& frame, const TextRows& rows) {
    std::string text;
    CBB::CXml xml;
    if (rows.empty()) {
        return true;
    }
    if (!frame.Item(NSS_TAG_XML_CONTENT, text) || !xml.Parse(text.data(), text.size())) {
        return false;
    }
    return std::all_of(rows.begin(), rows.end(), [&xml](const auto& row) {
        xml.Rewind();
        const bool found = xml.FindElem(row.first.c_str());
        const char* value = found ? xml.GetElemValue() : nullptr;
        return value != nullptr && MatchesText(row.second, value);
    });
}

bool JsonMatches(const Frame& frame, const std::vector<std::pair<std::string, Json::Value>>& rows) {
    const std::string text = BodyContent(frame);
    Json::Value body;
    if (rows.empty()) {
        return true;
    }
    if (!gvx::ParseJson(text.data(), text.size(), body, nullptr) || !body.isObject()) {
        return false;
    }
    return std::all_of(rows.begin(), rows.end(), [&body](const auto& row) {
        const Json::Value& found = body[row.first];
        return row.second.isString() && (found.isString() || found.isIntegral())
                   ? MatchesText(row.second.asString(), found.asString())
                   : found == row.second;
    });
}

}  // namespace

bool MatchesText(const std::string& pattern, const std::string& text) {
    std::size_t p = 0;
    std::size_t t = 0;
    std::size_t star = std::string::npos;
    std::size_t resume = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            resume = t;
        } else if (p < pattern.size() && pattern[p] == text[t]) {
            ++p;
            ++t;
        } else if (star != std::string::npos) {
            p = star + 1;
            t = ++resume;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string::npos;
}

void FramePattern::Read(MemberReader& reader) {
    anyType = !reader.Has("type");
    reader.Type("type", type);
    anyCode = !reader.Has("code");
    reader.Result("code", code);
    reader.Text("transaction", transaction);
    reader.Text("body", body);
    reader.Flag("bare", bare);
    ReadTexts(reader, "fields", fields);
    ReadTexts(reader, "xml", xml);
    if (const Json::Value* object = reader.Object("json")) {
        for (const std::string& member : object->getMemberNames()) {
            json.emplace_back(member, (*object)[member]);
        }
    }
}

bool FramePattern::Matches(const Frame& frame) const {
    return (anyType || type == frame.Type()) && (anyCode || code == frame.head.uiRspCode) &&
           (transaction.empty() || MatchesText(transaction, frame.Transaction())) &&
           (body.empty() || MatchesText(body, BodyContent(frame))) && (!bare || frame.body.empty()) &&
           FieldsMatch(frame, fields) && XmlMatches(frame, xml) && JsonMatches(frame, json);
}

std::string FramePattern::Describe() const {
    std::string text = anyType ? "frame" : TypeText(type);
    text += anyCode ? "" : " code " + CodeText(code);
    text += transaction.empty() ? "" : " transaction " + transaction;
    text += body.empty() ? "" : " body " + body;
    text += bare ? " without a body" : "";
    for (const TextRows* rows : {&fields, &xml}) {
        for (const auto& row : *rows) {
            text += " " + row.first + "=" + row.second;
        }
    }
    for (const auto& row : json) {
        text += " " + row.first + "=" + Printable(gvx::WriteJson(row.second));
    }
    return text;
}

}  // namespace gvxctl
