#include "gvx_common/forms/request_table.h"

#include "gvx_common/forms/record_forms.h"
#include "nss/nss_msg_type.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iterator>
#include <set>
#include <vector>

namespace gvx {
namespace {

constexpr RequestRow kRows[] = {
#define GVX_REQUEST_ROW(number, command, verb, target, Read, Written, sentence) \
    {number, #number, command, verb, target, &FormOf<Read>, &FormOf<Written>, sentence},
#define GVX_PLUGIN_REQUEST(number, command, verb, Read, Written, call, sentence) \
    GVX_REQUEST_ROW(number, command, verb, RequestScope::Plugin, Read, Written, sentence)
#define GVX_DEVICE_REQUEST(number, command, verb, Read, Written, call, sentence) \
    GVX_REQUEST_ROW(number, command, verb, RequestScope::Device, Read, Written, sentence)
#define GVX_LENS_REQUEST(number, command, verb, Read, Written, call, sentence) \
    GVX_REQUEST_ROW(number, command, verb, RequestScope::Lens, Read, Written, sentence)
#include "gvx_common/forms/request_table.inc"
#undef GVX_PLUGIN_REQUEST
#undef GVX_DEVICE_REQUEST
#undef GVX_LENS_REQUEST
#undef GVX_REQUEST_ROW
};

constexpr const char* kPageHead =
    R"(# Requests to devices

Every request here ends in one operation of a plug-in. Its body is a JSON object (tag 7, [nss-messages.md](nss-messages.md))
with `DevCode`, the members of its record and, where it concerns a lens, `LensCode` (absent: the device's first lens);
a request to a plug-in has `PluginName` instead of both. A response with result 0 repeats these and adds the members of
the record written. Other members of a request are passed over; an optional one that is absent keeps the record's own
value, and a plug-in learns which settings were named (`CONF_ITEM_MASK_STRU`).

| Result | When |
| --- | --- |
| `ZVS_PARA_INVALID` | a member is missing, of another type or out of its range; `Reason` names it |
| `ZVS_GVX_DEV_NOT_EXIST`, `ZVS_GVX_LENS_NOT_EXIST`, `ZVS_GVX_PLUGIN_NOT_EXIST` | there is no such device, lens or plug-in |
| `ZVS_GVX_DEV_UN_SUPPORT` | the plug-in does not support the operation |
| `ZVS_FAIL` | the answer would be longer than 1 MiB |
| another | what the plug-in answered; `Reason` carries its sentence when it gives one |

A member with names is a number; in a request the name may stand in its place. Members with `*` must be there. Passwords
are wiped when the operation has returned; no answer carries one. Times are UTC unless said otherwise. `gvxctl` sends each of
these by the command beside it, with members as `Name=value`.

This page is written by `gvxctl requests --page` from the table that the gateway itself reads by.
)";

const char* ScopeText(RequestScope scope) {
    switch (scope) {
        case RequestScope::Plugin:
            return "a plug-in";
        case RequestScope::Device:
            return "a device";
        case RequestScope::Lens:
            break;
    }
    return "a lens";
}

const char* RuleWord(TextRule rule) {
    switch (rule) {
        case TextRule::Any:
            break;
        case TextRule::Code:
            return ", an identifier";
        case TextRule::Time:
            return ", `YYYYMMDDhhmmss`";
        case TextRule::TimeOfDay:
            return ", `hhmmss`";
        case TextRule::Ip:
            return ", IPv4";
        case TextRule::Mac:
            return ", hardware address";
        case TextRule::Hex:
            return ", hexadecimal";
    }
    return "";
}

// The name by which a page links to a heading.
std::string Anchor(const char* heading) {
    std::string anchor(heading);
    std::transform(anchor.begin(), anchor.end(), anchor.begin(), [](unsigned char c) { return std::tolower(c); });
    return anchor;
}

std::string TypeText(const FieldForm& field) {
    std::string text = field.list != nullptr ? "list of " : "";
    switch (field.kind) {
        case FieldKind::Flag:
            return text + "true, false";
        case FieldKind::Integer:
        case FieldKind::Real:
            return text + RangeText(field);
        case FieldKind::Text:
            return text + "text, " + RangeText(field) + RuleWord(field.rule);
        case FieldKind::Json:
            return text + "any value";
        case FieldKind::Record:
            return text + "[" + field.record().name + "](#" + Anchor(field.record().name) + ")";
    }
    return text;
}

// The records of a form that have a table of their own on the page, each once.
void CollectRecords(const RecordForm& form, std::set<const RecordForm*>& seen,
                    std::vector<const RecordForm*>& inOrder) {
    for (const FieldForm& field : form) {
        if (field.kind != FieldKind::Record) {
            continue;
        }
        if (field.name != nullptr && seen.insert(&field.record()).second) {
            inOrder.push_back(&field.record());
        }
        CollectRecords(field.record(), seen, inOrder);
    }
}

void AddFields(const RecordForm& form, bool ofRequest, std::string& page) {
    for (const FieldForm& field : form) {
        if (field.name == nullptr) {
            AddFields(field.record(), ofRequest, page);
        } else if (!(ofRequest ? field.answerOnly : field.secret)) {
            page += std::string("| `") + field.name + "`" + (ofRequest && field.required ? "\\*" : "") + " | " +
                    TypeText(field) + " | " + field.text + " |\n";
        }
    }
}

std::string Fields(const RecordForm& form, bool ofRequest) {
    std::string rows;
    AddFields(form, ofRequest, rows);
    return rows;
}

void AddTable(const char* head, const std::string& rows, std::string& page) {
    if (!rows.empty()) {
        page += std::string("\n| ") + head + " | Value | Meaning |\n| --- | --- | --- |\n" + rows;
    }
}

}  // namespace

RequestRows AllRequests() {
    return {kRows, std::size(kRows)};
}

std::string RequestsPage() {
    std::string page = kPageHead;
    std::set<const RecordForm*> seen;
    std::vector<const RecordForm*> records;
    for (const RequestRow& row : AllRequests()) {
        char number[8];
        std::snprintf(number, sizeof(number), "0x%04X", row.reqID);
        page += std::string("\n## ") + row.name + " " + number + "\n\n" + row.sentence + " To " + ScopeText(row.scope) +
                "; `gvxctl " + row.command + (*row.verb == '\0' ? "" : " ") + row.verb + "`.\n";
        AddTable("Request", Fields(row.request(), true), page);
        AddTable("Answer", Fields(row.answer(), false), page);
        CollectRecords(row.request(), seen, records);
        CollectRecords(row.answer(), seen, records);
    }
    page += "\n# Records within records\n";
    for (const RecordForm* record : records) {
        page += std::string("\n## ") + record->name + "\n";
        AddTable("Member", Fields(*record, true), page);
    }
    return page;
}

}  // namespace gvx
