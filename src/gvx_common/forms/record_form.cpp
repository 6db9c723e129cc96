#include "gvx_common/forms/record_form.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>

#include <arpa/inet.h>

namespace gvx {
namespace {

// A number as a person writes it: at most six digits behind the point, none without need.
std::string RealText(double value) {
    char text[32];
    std::snprintf(text, sizeof(text), "%g", value);
    return text;
}

bool AllOf(const std::string& text, int (*is)(int)) {
    return std::all_of(text.begin(), text.end(), [is](unsigned char c) { return is(c) != 0; });
}

int TwoDigits(const std::string& text, std::size_t at) {
    return (text[at] - '0') * 10 + (text[at + 1] - '0');
}

bool IsTimeOfDay(const std::string& text) {
    if (text.size() != 6 || !AllOf(text, std::isdigit)) {
        return false;
    }
    return text == "240000" || (TwoDigits(text, 0) < 24 && TwoDigits(text, 2) < 60 && TwoDigits(text, 4) < 60);
}

bool IsTime(const std::string& text) {
    if (text.size() != 14 || !AllOf(text, std::isdigit)) {
        return false;
    }
    const int month = TwoDigits(text, 4);
    const int day = TwoDigits(text, 6);
    return month >= 1 && month <= 12 && day >= 1 && day <= 31 && IsTimeOfDay(text.substr(8)) &&
           text.compare(8, 6, "240000") != 0;
}

bool IsMac(const std::string& text) {
    if (text.size() != 17) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (i % 3 == 2 ? c != ':' : std::isxdigit(c) == 0) {
            return false;
        }
    }
    return true;
}

bool Follows(TextRule rule, const std::string& text) {
    in_addr address{};
    switch (rule) {
        case TextRule::Any:
            return text.find('\0') == std::string::npos;
        case TextRule::Code:
            return std::all_of(text.begin(), text.end(), [](unsigned char c) { return c > 0x20 && c != 0x7F; });
        case TextRule::Time:
            return IsTime(text);
        case TextRule::TimeOfDay:
            return IsTimeOfDay(text);
        case TextRule::Ip:
            return inet_pton(AF_INET, text.c_str(), &address) == 1 && text.find('\0') == std::string::npos;
        case TextRule::Mac:
            return IsMac(text);
        case TextRule::Hex:
            return AllOf(text, std::isxdigit);
    }
    return false;
}

const char* RuleText(TextRule rule) {
    switch (rule) {
        case TextRule::Code:
            return "an identifier";
        case TextRule::Time:
            return "a time, YYYYMMDDhhmmss";
        case TextRule::TimeOfDay:
            return "a time of day, hhmmss";
        case TextRule::Ip:
            return "an IPv4 address";
        case TextRule::Mac:
            return "a hardware address";
        case TextRule::Hex:
            return "made of hexadecimal digits";
        case TextRule::Any:
            break;
    }
    return "a text";
}

// Nowhere when at is null.
void StoreNumber(NumberStore store, void* at, long long number) {
    switch (at == nullptr ? NumberStore::None : store) {
        case NumberStore::Int32: {
            const auto value = static_cast<std::int32_t>(number);  // also of an enumeration, whose type that is
            std::memcpy(at, &value, sizeof(value));
            return;
        }
        case NumberStore::UInt16:
            *static_cast<std::uint16_t*>(at) = static_cast<std::uint16_t>(number);
            return;
        case NumberStore::UInt32:
            *static_cast<std::uint32_t*>(at) = static_cast<std::uint32_t>(number);
            return;
        case NumberStore::UInt64:
            *static_cast<std::uint64_t*>(at) = static_cast<std::uint64_t>(number);
            return;
        case NumberStore::None:
            return;
    }
}

Json::Value LoadNumber(NumberStore store, const void* at) {
    switch (store) {
        case NumberStore::Int32: {
            std::int32_t value = 0;
            std::memcpy(&value, at, sizeof(value));
            return Json::Value(value);
        }
        case NumberStore::UInt16:
            return Json::Value(*static_cast<const std::uint16_t*>(at));
        case NumberStore::UInt32:
            return Json::Value(*static_cast<const std::uint32_t*>(at));
        case NumberStore::UInt64:
            return Json::Value(Json::UInt64(*static_cast<const std::uint64_t*>(at)));
        case NumberStore::None:
            break;
    }
    return Json::Value();
}

// The member's path for a fault: what stands around it, a point, its name.
std::string Path(const std::string& around, const char* name) {
    return around.empty() ? name : around + "." + name;
}

void* Member(const FieldForm& field, void* record) {
    return record == nullptr ? nullptr : field.at(record);
}

bool ReadInto(const RecordForm& form, const Json::Value& object, void* record, const std::string& around,
              std::string& fault);

bool ReadInteger(const FieldForm& field, const Json::Value& value, void* at, const std::string& path,
                 std::string& fault) {
    if (field.names != nullptr) {
        for (std::size_t i = 0; i < field.nameCount; ++i) {
            const NumberName& row = field.names[i];
            if ((value.isString() && value.asString() == row.name) ||
                (value.isInt64() && value.asInt64() == row.number)) {
                StoreNumber(field.store, at, row.number);
                return true;
            }
        }
        fault = path + " is not one of " + RangeText(field) + ".";
        return false;
    }
    if (!value.isInt64() || value.asInt64() < field.least || value.asInt64() > field.most) {
        fault = path + " is not one of " + RangeText(field) + ".";
        return false;
    }
    StoreNumber(field.store, at, value.asInt64());
    return true;
}

bool ReadText(const FieldForm& field, const Json::Value& value, void* at, const std::string& path, std::string& fault) {
    if (!value.isString()) {
        fault = path + " is no text.";
        return false;
    }
    const char* begin = nullptr;
    const char* end = nullptr;
    value.getString(&begin, &end);
    std::string checked;
    std::string& text = at != nullptr ? *static_cast<std::string*>(at) : checked;
    text.assign(begin, end);  // in place: it may be a password
    const auto length = static_cast<long long>(text.size());
    if (length < field.least || length > field.most) {
        fault = path + " is not " + RangeText(field) + " long.";
        return false;
    }
    if (!text.empty() && !Follows(field.rule, text)) {
        fault = path + " is not " + RuleText(field.rule) + ".";
        return false;
    }
    return true;
}

bool ReadValue(const FieldForm& field, const Json::Value& value, void* at, const std::string& path,
               std::string& fault) {
    switch (field.kind) {
        case FieldKind::Flag:
            if (!value.isBool()) {
                fault = path + " is not true or false.";
                return false;
            }
            if (at != nullptr) {
                *static_cast<bool*>(at) = value.asBool();
            }
            return true;
        case FieldKind::Integer:
            return ReadInteger(field, value, at, path, fault);
        case FieldKind::Real: {
            const double number = value.isNumeric() ? value.asDouble() : field.realMost;
            if (!value.isNumeric() || !std::isfinite(number) || number < field.realLeast || number > field.realMost) {
                fault = path + " is not one of " + RangeText(field) + ".";
                return false;
            }
            if (at != nullptr) {
                *static_cast<double*>(at) = number;
            }
            return true;
        }
        case FieldKind::Text:
            return ReadText(field, value, at, path, fault);
        case FieldKind::Json:
            if (at != nullptr) {
                *static_cast<Json::Value*>(at) = value;
            }
            return true;
        case FieldKind::Record:
            if (!value.isObject()) {
                fault = path + " is no object.";
                return false;
            }
            return ReadInto(field.record(), value, at, path, fault);
    }
    return false;
}

bool ReadList(const FieldForm& field, const Json::Value& value, void* at, const std::string& path, std::string& fault) {
    if (!value.isArray() || value.size() > FieldForm::kMaxElements) {
        fault = path + " is no list of at most " + std::to_string(FieldForm::kMaxElements) + " values.";
        return false;
    }
    for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
        if (!ReadValue(field, value[i], at == nullptr ? nullptr : field.list->append(at),
                       path + "[" + std::to_string(i) + "]", fault)) {
            return false;
        }
    }
    return true;
}

bool ReadInto(const RecordForm& form, const Json::Value& object, void* record, const std::string& around,
              std::string& fault) {
    for (const FieldForm& field : form) {
        if (field.name == nullptr) {
            if (!ReadInto(field.record(), object, Member(field, record), around, fault)) {
                return false;
            }
            continue;
        }
        const Json::Value* const value = object.find(field.name, field.name + std::strlen(field.name));
        if (value == nullptr || field.answerOnly) {
            if (field.required) {
                fault = Path(around, field.name) + " is missing.";
                return false;
            }
            continue;
        }
        const std::string path = Path(around, field.name);
        void* const at = Member(field, record);
        if (!(field.list != nullptr ? ReadList(field, *value, at, path, fault)
                                    : ReadValue(field, *value, at, path, fault))) {
            return false;
        }
        if (field.item != FieldForm::kNoItem && form.mask != nullptr && record != nullptr) {
            form.mask(record)->Mask[field.item] = 1;
        }
    }
    if (form.finish != nullptr && record != nullptr) {
        form.finish(record);
    }
    return true;
}

Json::Value WriteValue(const FieldForm& field, const void* at) {
    switch (field.kind) {
        case FieldKind::Flag:
            return Json::Value(*static_cast<const bool*>(at));
        case FieldKind::Integer:
            return LoadNumber(field.store, at);
        case FieldKind::Real: {
            const double number = *static_cast<const double*>(at);
            return Json::Value(std::isfinite(number) ? number : 0);  // JSON has no other
        }
        case FieldKind::Text:
            return Json::Value(*static_cast<const std::string*>(at));
        case FieldKind::Json:
            return *static_cast<const Json::Value*>(at);
        case FieldKind::Record: {
            Json::Value object(Json::objectValue);
            WriteRecord(field.record(), at, object);
            return object;
        }
    }
    return Json::Value();
}

struct ListWriter {
    const FieldForm& field;
    Json::Value& array;
};

// Where a member stands: reading and writing share one accessor.
const void* At(const FieldForm& field, const void* record) {
    return field.at(const_cast<void*>(record));  // it forms an address, and nothing is written through it
}

}  // namespace

bool ReadRecord(const RecordForm& form, const Json::Value& object, void* record, std::string& fault) {
    return ReadInto(form, object, record, std::string(), fault);
}

void WriteRecord(const RecordForm& form, const void* record, Json::Value& object) {
    for (const FieldForm& field : form) {
        const void* const at = At(field, record);
        if (field.secret) {
            continue;
        }
        if (field.name == nullptr) {
            WriteRecord(field.record(), at, object);
        } else if (field.list != nullptr) {
            Json::Value array(Json::arrayValue);
            ListWriter writer{field, array};
            field.list->each(
                at,
                [](const void* value, void* context) {
                    auto& to = *static_cast<ListWriter*>(context);
                    to.array.append(WriteValue(to.field, value));
                },
                &writer);
            object[field.name] = std::move(array);
        } else {
            object[field.name] = WriteValue(field, at);
        }
    }
}

void WipeRecord(const RecordForm& form, void* record) {
    for (const FieldForm& field : form) {
        if (field.secret) {
            auto& text = *static_cast<std::string*>(field.at(record));
            OPENSSL_cleanse(text.data(), text.size());
        } else if (field.kind == FieldKind::Record && field.list == nullptr) {
            WipeRecord(field.record(), field.at(record));
        }
    }
}

const FieldForm* FindField(const RecordForm& form, const std::string& name) {
    for (const FieldForm& field : form) {
        const FieldForm* const found = field.name == nullptr ? FindField(field.record(), name)
                                       : name == field.name  ? &field
                                                             : nullptr;
        if (found != nullptr) {
            return found;
        }
    }
    return nullptr;
}

std::string UnknownMember(const RecordForm& form, const Json::Value& object) {
    for (const std::string& name : object.getMemberNames()) {
        const FieldForm* const field = FindField(form, name);
        if (field == nullptr) {
            return name;
        }
        const Json::Value& value = object[name];
        if (field->kind != FieldKind::Record) {
            continue;
        }
        if (field->list == nullptr && value.isObject()) {
            const std::string inner = UnknownMember(field->record(), value);
            if (!inner.empty()) {
                return name + "." + inner;
            }
        }
        for (Json::ArrayIndex i = 0; field->list != nullptr && value.isArray() && i < value.size(); ++i) {
            const std::string inner = value[i].isObject() ? UnknownMember(field->record(), value[i]) : std::string();
            if (!inner.empty()) {
                return name + "[" + std::to_string(i) + "]." + inner;
            }
        }
    }
    return std::string();
}

std::string RangeText(const FieldForm& field) {
    if (field.names != nullptr) {
        std::string text;
        for (std::size_t i = 0; i < field.nameCount; ++i) {
            text += (i == 0 ? "" : ", ") + std::to_string(field.names[i].number) + " " + field.names[i].name;
        }
        return text;
    }
    switch (field.kind) {
        case FieldKind::Flag:
            return "true, false";
        case FieldKind::Integer:
            return std::to_string(field.least) + " to " + std::to_string(field.most);
        case FieldKind::Real:
            return RealText(field.realLeast) + " to " + RealText(field.realMost);
        case FieldKind::Text:
            return field.least == field.most
                       ? std::to_string(field.most) + " bytes"
                       : std::to_string(field.least) + " to " + std::to_string(field.most) + " bytes";
        case FieldKind::Json:
            return "any value";
        case FieldKind::Record:
            break;
    }
    return std::string();
}

}  // namespace gvx
