#include "gvxctl/device_commands.h"

#include "base/json_io.h"
#include "base/zvs_error.h"
#include "gvx_common/forms/request_table.h"
#include "gvxctl/frame_text.h"
#include "gvxctl/platform.h"
#include "gvxctl/terminal.h"
#include "nss/nss_msg.h"
#include "nss/nss_msg_type.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace gvxctl {
namespace {

using gvx::FieldForm;
using gvx::FieldKind;
using gvx::RecordForm;
using gvx::RequestScope;

// A word of the command line as the member's value. What is none for its kind stays a text, which the check refuses.
Json::Value ValueOf(const FieldForm& field, const std::string& word) {
    Json::Value json;
    const bool parsed = gvx::ParseJson(word.data(), word.size(), json, nullptr);
    if (field.list != nullptr || field.kind == FieldKind::Record) {
        return parsed ? json : Json::Value(word);
    }
    switch (field.kind) {
        case FieldKind::Flag:
            return word == "on" || word == "1"    ? Json::Value(true)
                   : word == "off" || word == "0" ? Json::Value(false)
                   : parsed                       ? json
                                                  : Json::Value(word);
        case FieldKind::Integer:
        case FieldKind::Real:
            return parsed && json.isNumeric() ? json : Json::Value(word);
        case FieldKind::Json:
            return parsed ? json : Json::Value(word);
        case FieldKind::Text:
        case FieldKind::Record:
            break;
    }
    return word;
}

// The first member that must be there and is not yet; null when there is none.
const FieldForm* NextRequired(const RecordForm& form, const Json::Value& body) {
    for (const FieldForm& field : form) {
        const FieldForm* const found = field.name == nullptr ? NextRequired(field.record(), body)
                                       : field.required && !body.isMember(field.name) ? &field
                                                                                      : nullptr;
        if (found != nullptr) {
            return found;
        }
    }
    return nullptr;
}

bool TakeWord(const RecordForm& form, const std::string& word, Json::Value& body, std::string& error) {
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals == std::string::npos ? 0 : equals);
    const FieldForm* const field = equals == std::string::npos ? NextRequired(form, body) : FindField(form, name);
    if (field == nullptr || field->answerOnly) {
        error = equals == std::string::npos ? "\"" + word + "\" is no NAME=VALUE." : "There is no member " + name + ".";
        return false;
    }
    std::string value = equals == std::string::npos ? word : word.substr(equals + 1);
    if (field->secret && value == "-" && !std::getline(std::cin, value)) {
        error = std::string(field->name) + ": standard input holds no line.";
        return false;
    }
    body[field->name] = ValueOf(*field, value);
    return true;
}

void AddMembers(const RecordForm& form, std::string& text) {
    for (const FieldForm& field : form) {
        if (field.name == nullptr) {
            AddMembers(field.record(), text);
        } else if (!field.answerOnly) {
            const std::string range =
                field.kind == FieldKind::Record ? std::string(field.record().name) + ", JSON" : RangeText(field);
            text += std::string("  ") + field.name + (field.required ? "*" : "") + ": " + field.text + " (" +
                    (field.list != nullptr ? "list of " : "") + range + ")\n";
        }
    }
}

void AddLines(const RecordForm& form, const Json::Value& object, const std::string& indent, std::string& text);

std::string Scalar(const FieldForm& field, const Json::Value& value) {
    if (field.kind == FieldKind::Integer && value.isInt64()) {
        for (std::size_t i = 0; i < field.nameCount; ++i) {
            if (field.names[i].number == value.asInt64()) {
                return value.asString() + " " + field.names[i].name;
            }
        }
    }
    if (value.isString()) {
        return Printable(value.asString());
    }
    std::string json = gvx::WriteJson(value);
    json.pop_back();  // the line end
    return Printable(json);
}

void AddValue(const FieldForm& field, const Json::Value& value, const std::string& indent, std::string& text) {
    if (field.kind == FieldKind::Record && value.isObject()) {
        text += "\n";
        AddLines(field.record(), value, indent + "  ", text);
    } else {
        text += " " + Scalar(field, value) + "\n";
    }
}

// In the order of the form; what the form does not know is left to --json.
void AddLines(const RecordForm& form, const Json::Value& object, const std::string& indent, std::string& text) {
    for (const FieldForm& field : form) {
        if (field.name == nullptr) {
            AddLines(field.record(), object, indent, text);
            continue;
        }
        if (!object.isMember(field.name)) {
            continue;
        }
        const Json::Value& value = object[field.name];
        if (field.list == nullptr || !value.isArray()) {
            text += indent + field.name + ":";
            AddValue(field, value, indent, text);
            continue;
        }
        text += indent + field.name + (value.empty() ? ": none\n" : "");
        for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
            text += (i == 0 ? "" : indent + field.name) + "[" + std::to_string(i) + "]:";
            AddValue(field, value[i], indent, text);
        }
    }
}

}  // namespace

bool MakeRequestBody(const gvx::RequestRow& row, const DeviceRequestOptions& options, Json::Value& body,
                     std::string& error) {
    const RecordForm& form = row.request();
    body = Json::Value(Json::objectValue);
    if (!options.body.empty() &&
        (!gvx::ParseJson(options.body.data(), options.body.size(), body, &error) || !body.isObject())) {
        error = "The body is no JSON object. " + error;
        return false;
    }
    for (const std::string& word : options.words) {
        if (!TakeWord(form, word, body, error)) {
            return false;
        }
    }
    // The lens is a member of some records itself.
    if (!options.lensCode.empty() && FindField(form, "LensCode") != nullptr) {
        body["LensCode"] = options.lensCode;
    }
    const std::string unknown = UnknownMember(form, body);
    if (!unknown.empty()) {
        error = "There is no member " + unknown + ".";
        return false;
    }
    if (!ReadRecord(form, body, nullptr, error)) {
        return false;
    }
    if (row.scope == RequestScope::Plugin) {
        body["PluginName"] = options.plugin;
        return true;
    }
    body["DevCode"] = options.devCode;
    if (row.scope == RequestScope::Lens && !options.lensCode.empty()) {
        body["LensCode"] = options.lensCode;
    }
    return true;
}

std::string MembersText(const gvx::RequestRow& row) {
    std::string text;
    AddMembers(row.request(), text);
    return text.empty() ? "The request has no members." : "Members, NAME=VALUE; those with * must be there:\n" + text;
}

std::string AnswerText(const RecordForm& form, const Json::Value& body) {
    std::string text;
    AddLines(form, body, "  ", text);
    return text;
}

int RunDeviceRequest(const CommonOptions& common, const gvx::RequestRow& row, const DeviceRequestOptions& options) {
    Json::Value body;
    std::string error;
    if (!MakeRequestBody(row, options, body, error)) {
        return Fail(kExitWrongUse, error);
    }
    Platform platform(common.gateway, nullptr, common.ports);
    if (!platform.LinkMainService(error)) {
        return Fail(kExitNoLink, error);
    }
    Response response;
    if (!platform.Request(row.reqID, NSS_TAG_JSON_CONTENT, gvx::WriteJson(body), response, error)) {
        return Fail(kExitRefused, error);
    }
    if (common.json) {
        std::fputs(gvx::WriteJson(ResponseToJson(response)).c_str(), stdout);
    } else if (response.code == 0) {
        std::printf("%s: done\n%s", row.name, AnswerText(row.answer(), JsonBody(response)).c_str());
    } else {
        return Fail(kExitRefused, RefusalText(response));
    }
    return response.code == 0 ? kExitOk : kExitRefused;
}

int RunRequests(bool page) {
    if (page) {
        std::fputs(gvx::RequestsPage().c_str(), stdout);
        return kExitOk;
    }
    for (const gvx::RequestRow& row : gvx::AllRequests()) {
        const std::string command = std::string(row.command) + (*row.verb == '\0' ? "" : " ") + row.verb;
        std::printf("%-22s 0x%04X %-44s %s\n", command.c_str(), row.reqID, row.name, row.sentence);
    }
    return kExitOk;
}

}  // namespace gvxctl
