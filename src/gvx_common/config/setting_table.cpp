#include "gvx_common/config/setting_table.h"

#include "base/near_words.h"
#include "bp/net_address.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <memory>

namespace gvx {
namespace {

// ---- the words of the table ----

constexpr SettingRule Number(long long least, long long most) {
    return {SettingKind::Number, least, most};
}
constexpr SettingRule Nearest(long long least, long long most) {
    return {SettingKind::Number, least, most, LoadCheck::None, nullptr, Outside::Nearest};
}
constexpr SettingRule Capped(long long least, long long most) {
    return {SettingKind::Number, least, most, LoadCheck::None, nullptr, Outside::Most};
}
constexpr SettingRule Switch() {
    return Number(0, 1);
}
constexpr SettingRule OneOf(const char* choices) {
    return {SettingKind::OneOf, 0, 0, LoadCheck::None, choices};
}
constexpr SettingRule Address() {
    return {SettingKind::Address};
}
constexpr SettingRule Text() {
    return {SettingKind::Text};
}
constexpr SettingRule PortRanges() {
    return {SettingKind::PortRanges};
}
constexpr SettingRule RequestTypes() {
    return {SettingKind::RequestTypes};
}
constexpr SettingRule Networks() {
    return {SettingKind::Networks};
}

// Those that the platform wants to be told about.
constexpr SettingRule AlarmedAddress() {
    return {SettingKind::Address, 0, 0, LoadCheck::Address};
}
constexpr SettingRule Digits(long long least = 0, long long most = -1) {
    return {most < least ? SettingKind::Text : SettingKind::Number, least, most, LoadCheck::Digits};
}
constexpr SettingRule Ranged(long long least, long long most) {
    return {SettingKind::Number, least, most, LoadCheck::Range};
}
constexpr SettingRule RangedNearest(long long least, long long most) {
    return {SettingKind::Number, least, most, LoadCheck::Range, nullptr, Outside::Nearest};
}
constexpr SettingRule Formats(const char* choices) {
    return {SettingKind::OneOf, 0, 0, LoadCheck::Formats, choices};
}
constexpr SettingRule AlarmedSwitch() {
    return {SettingKind::Number, 0, 1, LoadCheck::Switch};
}
constexpr SettingRule Identity(SettingKind kind) {
    return {kind, 0, 0, LoadCheck::Identity};
}

constexpr SettingEdit NoEdit() {
    return {};
}
constexpr SettingEdit Edit() {
    return {SettingEdit::By::Platform};
}
constexpr SettingEdit EditWithin(long long least, long long most) {
    return {SettingEdit::By::Platform, false, least, most};
}
constexpr SettingEdit EditAny() {
    return {SettingEdit::By::Platform, true};
}
constexpr SettingEdit OperatorEdit() {
    return {SettingEdit::By::Operator};
}

constexpr SettingActs Live = SettingActs::Live;
constexpr SettingActs Stream = SettingActs::Stream;
constexpr SettingActs Start = SettingActs::Start;
constexpr SettingActs Never = SettingActs::Never;

constexpr SettingRow kRows[] = {
#define GVX_SETTING_OF(file, key, section, rule, fallback, edit, acts, readers) \
    {Setting::key, file, #key, section, rule, fallback, edit, acts, readers},
#define GVX_SETTING(key, ...) GVX_SETTING_OF("zvs_gvx.conf", key, __VA_ARGS__)
#include "gvx_common/config/setting_table.inc"
#undef GVX_SETTING
#undef GVX_SETTING_OF
};

constexpr int CountOf(LoadCheck check) {
    int count = 0;
    for (const SettingRow& row : kRows) {
        count += row.rule.check == check ? 1 : 0;
    }
    return count;
}
static_assert(CountOf(LoadCheck::Address) == 5);
static_assert(CountOf(LoadCheck::Digits) == 38);
static_assert(CountOf(LoadCheck::Range) == 7);
static_assert(CountOf(LoadCheck::Switch) == 13);
static_assert(CountOf(LoadCheck::Identity) == 4);

// ---- values ----

bool ReadWhole(const std::string& text, long long& number) {
    char* end = nullptr;
    errno = 0;
    number = std::strtoll(text.c_str(), &end, 10);
    return !text.empty() && (text[0] == '-' || (text[0] >= '0' && text[0] <= '9')) && *end == '\0' && errno == 0;
}

bool AllParts(const std::string& list, bool (*fits)(const std::string&)) {
    const std::vector<std::string> parts = CGvxUtility::split(list, ",");
    return std::all_of(parts.begin(), parts.end(), fits);
}

bool IsRequestType(const std::string& text) {
    unsigned int number = 0;
    return text.compare(0, 2, "0x") == 0 && CGvxUtility::GetIntergerByHexString(text, number) == 0 &&
           CGvxUtility::toLower(text) == text;
}

bool IsNetwork(const std::string& text) {
    const std::string entry = CGvxUtility::replaceAll(text, " ", "");
    BP::NetNetwork network;
    return entry.empty() || BP::NetNetwork::Parse(entry, network);
}

std::string Near(const std::string& word, const char* SettingRow::*name) {
    std::vector<std::string> names;
    for (const SettingRow& row : kRows) {
        names.emplace_back(row.*name);
    }
    const std::vector<std::string> near = NearWords(word, names);
    return near.empty() ? std::string() : near.front();
}

const char* ActsWord(SettingActs acts) {
    switch (acts) {
        case SettingActs::Live:
            return "live";
        case SettingActs::Stream:
            return "next stream";
        case SettingActs::Start:
            return "restart";
        case SettingActs::Never:
            break;
    }
    return "-";
}

std::string EditWords(const SettingRow& row) {
    if (row.edit.by == SettingEdit::By::Nobody) {
        return "-";
    }
    std::string words = row.edit.anyValue    ? "any"
                        : row.edit.most != 0 ? std::to_string(row.edit.least) + " to " + std::to_string(row.edit.most)
                                             : "the same";
    return row.edit.by == SettingEdit::By::Operator ? words + ", not by the platform" : words;
}

}  // namespace

const SettingRow& RowOf(Setting setting) {
    return kRows[static_cast<std::size_t>(setting)];
}

const SettingRow* FindSetting(const std::string& key) {
    const auto* row =
        std::find_if(std::begin(kRows), std::end(kRows), [&key](const SettingRow& r) { return key == r.key; });
    return row != std::end(kRows) ? row : nullptr;
}

const std::vector<SettingRow>& AllSettings() {
    static const auto& all = *new std::vector<SettingRow>(std::begin(kRows), std::end(kRows));
    return all;
}

const std::vector<SettingFloor>& SettingFloors() {
    static const auto& floors = *new std::vector<SettingFloor>{
        // A peer that only answers keep-alives must not count as dead between two of them.
        {Setting::GVX_LINK_DEAD_TIME, Setting::GVX_LINK_KEEPALIVE_TIME, 2},
        {Setting::GVX_LINK_BACKOFF_MAX, Setting::GVX_LINK_BACKOFF_MIN, 1},
        {Setting::GVX_LINK_MAX_QUEUE, Setting::GVX_LINK_MAX_FRAME, 1},
    };
    return floors;
}

bool IsSettingSection(const std::string& section) {
    return std::any_of(std::begin(kRows), std::end(kRows),
                       [&section](const SettingRow& row) { return section == row.section; });
}

std::string NearKey(const std::string& word) {
    return Near(word, &SettingRow::key);
}

std::string NearSection(const std::string& word) {
    return Near(word, &SettingRow::section);
}

bool FitsSetting(const SettingRow& row, const std::string& value) {
    long long number = 0;
    switch (row.rule.kind) {
        case SettingKind::Number:
            return ReadWhole(value, number) && number >= row.rule.least && number <= row.rule.most &&
                   (row.rule.check != LoadCheck::Switch || value.size() == 1);
        case SettingKind::OneOf: {
            const std::vector<std::string> choices = CGvxUtility::split(row.rule.choices, ",");
            return std::find(choices.begin(), choices.end(), value) != choices.end();
        }
        case SettingKind::Address:
            return value.empty() && row.rule.check == LoadCheck::None ? *row.fallback == '\0'
                                                                      : CGvxUtility::IsIPv4(value.c_str());
        case SettingKind::PortRanges: {
            std::vector<PortRange> ranges;
            return ReadPortRanges(value, ranges);
        }
        case SettingKind::RequestTypes:
            return AllParts(value, &IsRequestType);
        case SettingKind::Networks:
            return AllParts(value, &IsNetwork);
        // The next three by the rules of CGvxUtility's checks, which write a line at each call: settings are read
        // often.
        case SettingKind::Level:
            return value == "A" || value == "B" || value == "C";
        case SettingKind::KeyLabel:
            return value.size() >= 3 && value.size() <= 32 && std::all_of(value.begin(), value.end(), [](char c) {
                       return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
                   });
        case SettingKind::ServerID:
            return value.size() == 20 && CGvxUtility::isNum(value);
        case SettingKind::Text:
            return row.rule.check != LoadCheck::Digits || CGvxUtility::isNum(value);
    }
    return false;
}

std::string ValueInForce(const SettingRow& row, const std::string& value) {
    long long number = 0;
    if (FitsSetting(row, value) || row.rule.kind == SettingKind::RequestTypes ||
        row.rule.kind == SettingKind::Networks) {
        return value;
    }
    if (row.rule.outside == Outside::Default || !ReadWhole(value, number)) {
        return row.fallback;
    }
    const bool above = number > row.rule.most || (row.rule.outside == Outside::Most && number < 0);
    return std::to_string(above ? row.rule.most : row.rule.least);
}

std::string SettingValues(const SettingRow& row) {
    switch (row.rule.kind) {
        case SettingKind::Number:
            return row.rule.least == 0 && row.rule.most == 1
                       ? "0 or 1"
                       : std::to_string(row.rule.least) + " to " + std::to_string(row.rule.most);
        case SettingKind::OneOf: {
            std::string choices = CGvxUtility::replaceAll(row.rule.choices, ",", ", ");
            return choices.replace(choices.rfind(", "), 2, " or ");
        }
        case SettingKind::Address:
            return "an IPv4 address";
        case SettingKind::PortRanges:
            return "ranges <from>-<to>";
        case SettingKind::RequestTypes:
            return "lower-case hexadecimal with 0x, separated by commas";
        case SettingKind::Networks:
            return "networks such as 10.0.0.0/8, separated by commas";
        case SettingKind::Level:
            return "A, B or C";
        case SettingKind::KeyLabel:
            return "3 to 32 letters and digits";
        case SettingKind::ServerID:
            return "20 digits";
        case SettingKind::Text:
            break;
    }
    return row.rule.check == LoadCheck::Digits ? "digits" : "text";
}

std::string SettingsPage() {
    std::string page =
        "# Settings\n\n"
        "This page is made by `gvxd --list-settings`. What a setting means stands in `conf/zvs_gvx.conf` above it. A "
        "value\n"
        "that cannot be used is named by a warning at the start, with file, line and what holds instead: the default, "
        "or,\n"
        "where the values end with \"(nearest)\", the nearer end of the range. An edit at run time (`gvxctl config "
        "set`) is\n"
        "refused instead. A change acts live, with the next stream, or after a restart. A setting that nobody reads is "
        "for\n"
        "device plug-ins that are not of this tree; it is checked all the same.\n\n"
        "| Section | Key | Values | Default | Values of an edit | A change acts | Read by |\n"
        "| --- | --- | --- | --- | --- | --- | --- |\n";
    for (const SettingRow& row : kRows) {
        const bool nearest = row.rule.outside != Outside::Default;
        page += std::string("| ") + row.section + " | `" + row.key + "` | " + SettingValues(row) +
                (nearest ? " (nearest)" : "") + " | " +
                (*row.fallback != '\0' ? "`" + std::string(row.fallback) + "`" : "") + " | " + EditWords(row) + " | " +
                ActsWord(row.acts) + " | " + (row.readers != nullptr ? row.readers : "nobody here") + " |\n";
    }
    return CGvxUtility::replaceAll(page, "|  |", "| - |");
}

bool ReadPortRanges(const std::string& text, std::vector<PortRange>& ranges) {
    ranges.clear();
    for (const std::string& part : CGvxUtility::split(text, ",")) {
        const std::size_t dash = part.find('-');
        long long from = 0;
        long long to = 0;
        if (dash == std::string::npos || !ReadWhole(CGvxUtility::trim(part.substr(0, dash)), from) ||
            !ReadWhole(CGvxUtility::trim(part.substr(dash + 1)), to) || from < 1 || to < from || to > 65535) {
            ranges.clear();
            return false;
        }
        ranges.push_back({static_cast<std::uint16_t>(from), static_cast<std::uint16_t>(to)});
    }
    return true;
}

std::string SettingText(Setting setting) {
    struct Names {
        std::string key;
        std::string fallback;
    };
    // Made once, since many are longer than a string keeps within itself, and read for each command. They live until
    // the process ends: reactors stop late in its end.
    static const std::vector<Names>& names = *[] {
        auto all = std::make_unique<std::vector<Names>>();
        for (const SettingRow& row : kRows) {
            all->push_back({row.key, row.fallback});
        }
        return all.release();
    }();
    const Names& name = names[static_cast<std::size_t>(setting)];
    return ValueInForce(RowOf(setting), CGvxConfigMgr::Instance()->GetConfValue(name.key, name.fallback));
}

long long SettingNumber(Setting setting) {
    long long number = 0;
    ReadWhole(SettingText(setting), number);
    for (const SettingFloor& floor : SettingFloors()) {
        if (floor.setting == setting) {
            number = std::max(number, floor.factor * SettingNumber(floor.other));
        }
    }
    return number;
}

}  // namespace gvx
