#pragma once

#include "gvx_common/forms/record_form.h"

#include <functional>

// Values that are allowed for every member of a record, each its own, so that two members that are crossed show.

inline Json::Value SampleOf(const gvx::RecordForm& form, unsigned index = 0);

inline Json::Value SampleValue(const gvx::FieldForm& field, unsigned index) {
    const std::string name = field.name;
    const auto spread = std::hash<std::string>()(name) % 1000 + index;
    switch (field.kind) {
        case gvx::FieldKind::Flag:
            return index % 2 == 0;
        case gvx::FieldKind::Integer: {
            if (field.names != nullptr) {
                return Json::Value(Json::Int64(field.names[(1 + index) % field.nameCount].number));
            }
            const auto range = static_cast<unsigned long long>(field.most - field.least) + 1;
            return Json::Value(Json::Int64(field.least + static_cast<long long>(spread % range)));
        }
        case gvx::FieldKind::Real:
            return field.realLeast > -1e9
                       ? field.realLeast + (field.realMost - field.realLeast) * (static_cast<double>(spread) / 1024)
                       : static_cast<double>(spread) / 4;
        case gvx::FieldKind::Text:
            switch (field.rule) {
                case gvx::TextRule::Time:
                    return "20260102030" + std::to_string(400 + spread % 60).substr(0, 3);
                case gvx::TextRule::TimeOfDay:
                    return "1122" + std::to_string(10 + spread % 50);
                case gvx::TextRule::Ip:
                    return "10.1.2." + std::to_string(spread % 256);
                case gvx::TextRule::Mac:
                    return "00:11:22:33:44:5f";
                case gvx::TextRule::Hex:
                    return "0aF" + std::to_string(spread);
                case gvx::TextRule::Code:
                    return "C" + std::to_string(spread);
                case gvx::TextRule::Any:
                    break;
            }
            return ("\xC3\xA4 \"" + std::to_string(spread) + name).substr(0, static_cast<std::size_t>(field.most));
        case gvx::FieldKind::Json: {
            Json::Value value;
            value[name] = Json::Value(Json::Int64(spread));
            return value;
        }
        case gvx::FieldKind::Record:
            return SampleOf(field.record(), index);
    }
    return Json::Value();
}

// Without the members that a plug-in alone sets. The values of one index differ from those of the next.
inline Json::Value SampleOf(const gvx::RecordForm& form, unsigned index) {
    Json::Value object(Json::objectValue);
    for (const gvx::FieldForm& field : form) {
        if (field.name == nullptr) {
            const Json::Value part = SampleOf(field.record(), index);
            for (const std::string& name : part.getMemberNames()) {
                object[name] = part[name];
            }
        } else if (field.list != nullptr && !field.answerOnly) {
            object[field.name].append(SampleValue(field, 0));
            object[field.name].append(SampleValue(field, 1));
        } else if (!field.answerOnly) {
            object[field.name] = SampleValue(field, index);
        }
    }
    return object;
}
