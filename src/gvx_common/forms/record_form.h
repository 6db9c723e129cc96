#pragma once

#include "gvx_common/records/conf_item_mask.h"

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <list>
#include <string>
#include <type_traits>
#include <vector>

// The JSON form of a plain record: one table of its fields, with which requests are read, answers written, command
// lines checked and the reference page made. Tables are constant data; every operation is free to be called by any
// thread.
namespace gvx {

enum class FieldKind { Flag, Integer, Real, Text, Json, Record };

// How a number is kept.
enum class NumberStore { None, Int32, UInt16, UInt32, UInt64 };

// What a text may hold beside its length.
enum class TextRule {
    Any,
    Code,       // an identifier: printable, without blanks
    Time,       // UTC, "YYYYMMDDhhmmss"
    TimeOfDay,  // "hhmmss", up to "240000"
    Ip,         // dotted IPv4
    Mac,        // six pairs of hexadecimal digits, parted by ':'
    Hex,        // hexadecimal digits
};

// A number of an enumeration and its name on a command line.
struct NumberName {
    long long number;
    const char* name;
};

struct RecordForm;

// What a list of values can do, whatever its container.
struct ListAccess {
    std::size_t (*size)(const void* list);
    void* (*append)(void* list);  // a new value at the end
    // Calls visit with each value, in order.
    void (*each)(const void* list, void (*visit)(const void* value, void* context), void* context);
};

// One field. Made by Field<&Record::member>(...) and the operations behind it, which each return the changed form.
struct FieldForm {
    static constexpr int kNoItem = -1;
    static constexpr std::size_t kMaxElements = 1024;

    const char* name = nullptr;  // of the JSON member; null: the members of a record stand among those around it
    const char* text = nullptr;  // what it means, with its unit
    FieldKind kind = FieldKind::Flag;
    NumberStore store = NumberStore::None;
    TextRule rule = TextRule::Any;
    bool required = false;
    bool secret = false;      // wiped after use, never written
    bool answerOnly = false;  // set by the plug-in; passed over in a request
    int item = kNoItem;       // a _DEVICE_CONFIG_INDEX that is named in the mask when the member is there
    long long least = std::numeric_limits<long long>::min();  // of a number; of a text its length in bytes
    long long most = std::numeric_limits<long long>::max();
    double realLeast = -1e300;
    double realMost = 1e300;
    const NumberName* names = nullptr;  // when a number is one of these alone
    std::size_t nameCount = 0;
    void* (*at)(void* record) = nullptr;      // the member
    const RecordForm& (*record)() = nullptr;  // FieldKind::Record
    const ListAccess* list = nullptr;         // not null: a list of such values

    constexpr FieldForm Required() const {
        FieldForm form = *this;
        form.required = true;
        return form;
    }
    constexpr FieldForm Secret() const {
        FieldForm form = *this;
        form.secret = true;
        return form;
    }
    constexpr FieldForm AnswerOnly() const {
        FieldForm form = *this;
        form.answerOnly = true;
        return form;
    }
    // From least to most, both included: a number, or the length of a text.
    constexpr FieldForm Range(long long from, long long to) const {
        FieldForm form = *this;
        form.least = from;
        form.most = to;
        return form;
    }
    constexpr FieldForm Real(double from, double to) const {
        FieldForm form = *this;
        form.realLeast = from;
        form.realMost = to;
        return form;
    }
    constexpr FieldForm As(TextRule textRule) const {
        FieldForm form = *this;
        form.rule = textRule;
        return form;
    }
    constexpr FieldForm Item(_DEVICE_CONFIG_INDEX index) const {
        FieldForm form = *this;
        form.item = index;
        return form;
    }
    template <std::size_t N>
    constexpr FieldForm Names(const NumberName (&rows)[N]) const {
        FieldForm form = *this;
        form.names = rows;
        form.nameCount = N;
        return form;
    }
};

struct RecordForm {
    const char* name;  // of the record in the plug-in contract
    const FieldForm* fields;
    std::size_t fieldCount;
    CONF_ITEM_MASK_STRU* (*mask)(void* record) = nullptr;  // where fields have items
    void (*finish)(void* record) = nullptr;                // called when all members are read

    const FieldForm* begin() const { return fields; }
    const FieldForm* end() const { return fields + fieldCount; }
};

// The form of a record; record_forms.h declares those that there are.
template <typename Record>
const RecordForm& FormOf();

// Reads the members of an object into a record, which keeps its own value where an optional member is absent; a null
// record has the object only checked. A number with names may stand as its name. Members that the form does not know
// are passed over. False, with one sentence that names the member, for one that is missing, of another type or out of
// its range; the record is then half read.
bool ReadRecord(const RecordForm& form, const Json::Value& object, void* record, std::string& fault);

// Adds the record's members to an object. Secret ones are left out.
void WriteRecord(const RecordForm& form, const void* record, Json::Value& object);

// Overwrites the secret texts of a record.
void WipeRecord(const RecordForm& form, void* record);

// What a value may be, for a person: "1 to 65535", "0 stop, 1 up", "1 to 32 bytes".
std::string RangeText(const FieldForm& field);

// The first member of an object that the form does not know, at any depth, as "Points[1].Speed"; empty when it knows
// all.
std::string UnknownMember(const RecordForm& form, const Json::Value& object);

// The field of that member, those of records without a name of their own included; null when there is none.
const FieldForm* FindField(const RecordForm& form, const std::string& name);

namespace form_detail {

template <typename Type>
struct IsList : std::false_type {};
template <typename Value>
struct IsList<std::vector<Value>> : std::true_type {};
template <typename Value>
struct IsList<std::list<Value>> : std::true_type {};

template <typename List>
struct ListOf {
    static std::size_t Size(const void* list) { return static_cast<const List*>(list)->size(); }
    static void* Append(void* list) {
        auto& values = *static_cast<List*>(list);
        values.emplace_back();
        return &values.back();
    }
    static void Each(const void* list, void (*visit)(const void*, void*), void* context) {
        for (const auto& value : *static_cast<const List*>(list)) {
            visit(&value, context);
        }
    }
    static constexpr ListAccess kAccess{&Size, &Append, &Each};
};

template <auto Member>
struct MemberOf;
template <typename RecordType, typename MemberType, MemberType RecordType::*Member>
struct MemberOf<Member> {
    using Type = MemberType;
    static void* At(void* record) { return &(static_cast<RecordType*>(record)->*Member); }
};

template <typename Type>
constexpr NumberStore StoreOf() {
    if constexpr (sizeof(Type) == 8) {
        return NumberStore::UInt64;
    } else if constexpr (sizeof(Type) == 2) {
        return NumberStore::UInt16;
    } else if constexpr (std::is_enum_v<Type>) {
        return NumberStore::Int32;
    } else {
        return std::is_signed_v<Type> ? NumberStore::Int32 : NumberStore::UInt32;
    }
}

template <typename Type>
constexpr void DescribeType(FieldForm& form) {
    if constexpr (std::is_same_v<Type, bool>) {
        form.kind = FieldKind::Flag;
    } else if constexpr (std::is_integral_v<Type> || std::is_enum_v<Type>) {
        form.kind = FieldKind::Integer;
        form.store = StoreOf<Type>();
        form.least = form.store == NumberStore::Int32 ? std::numeric_limits<std::int32_t>::min() : 0;
        form.most = form.store == NumberStore::Int32    ? std::numeric_limits<std::int32_t>::max()
                    : form.store == NumberStore::UInt16 ? std::numeric_limits<std::uint16_t>::max()
                    : form.store == NumberStore::UInt32 ? std::numeric_limits<std::uint32_t>::max()
                                                        : std::numeric_limits<std::int64_t>::max();
    } else if constexpr (std::is_same_v<Type, double>) {
        form.kind = FieldKind::Real;
    } else if constexpr (std::is_same_v<Type, std::string>) {
        form.kind = FieldKind::Text;
        form.least = 0;
        form.most = 127;
    } else if constexpr (std::is_same_v<Type, Json::Value>) {
        form.kind = FieldKind::Json;
    } else if constexpr (IsList<Type>::value) {
        form.list = &ListOf<Type>::kAccess;
        DescribeType<typename Type::value_type>(form);
    } else {
        form.kind = FieldKind::Record;
        form.record = &FormOf<Type>;
    }
}

}  // namespace form_detail

// A member of a record under its name in JSON; a text is at most 127 bytes long unless Range says otherwise.
template <auto Member>
constexpr FieldForm Field(const char* name, const char* text) {
    FieldForm form;
    form.name = name;
    form.text = text;
    form.at = &form_detail::MemberOf<Member>::At;
    form_detail::DescribeType<typename form_detail::MemberOf<Member>::Type>(form);
    return form;
}

// A record within a record, whose members stand among those around it.
template <auto Member>
constexpr FieldForm Part() {
    return Field<Member>(nullptr, nullptr);
}

// Where a record keeps its mask.
template <auto Member>
CONF_ITEM_MASK_STRU* MaskAt(void* record) {
    return static_cast<CONF_ITEM_MASK_STRU*>(form_detail::MemberOf<Member>::At(record));
}

}  // namespace gvx
