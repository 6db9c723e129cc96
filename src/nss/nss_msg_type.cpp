#include "nss/nss_msg_type.h"

#include <algorithm>
#include <array>

namespace {

constexpr NssMsgTypeRow kRows[] = {
#include "nss/nss_msg_type_rows.inc"
};
constexpr std::size_t kRowCount = sizeof(kRows) / sizeof(kRows[0]);
static_assert(kRowCount <= UINT16_MAX, "the indexes below are of 16 bits");

constexpr std::string_view kPrefix = "NSS_";

std::string_view BareName(const NssMsgTypeRow& row) {
    return std::string_view(row.name).substr(kPrefix.size());
}

// Row numbers in two further orders, made once. Rows of one value keep their table order, so that the first name
// is found first.
struct Index {
    std::array<std::uint16_t, kRowCount> byValue;
    std::array<std::uint16_t, kRowCount> byName;

    Index() {
        for (std::size_t i = 0; i < kRowCount; ++i) {
            byValue[i] = static_cast<std::uint16_t>(i);
            byName[i] = static_cast<std::uint16_t>(i);
        }
        std::sort(byValue.begin(), byValue.end(), [](std::uint16_t a, std::uint16_t b) {
            return kRows[a].value != kRows[b].value ? kRows[a].value < kRows[b].value : a < b;
        });
        std::sort(byName.begin(), byName.end(),
                  [](std::uint16_t a, std::uint16_t b) { return BareName(kRows[a]) < BareName(kRows[b]); });
    }
};

const Index& TheIndex() {
    static const Index index;
    return index;
}

}  // namespace

const char* NssMsgTypeName(std::uint32_t value) noexcept {
    const auto& order = TheIndex().byValue;
    const auto found = std::lower_bound(order.begin(), order.end(), value, [](std::uint16_t row, std::uint32_t wanted) {
        return kRows[row].value < wanted;
    });
    return found != order.end() && kRows[*found].value == value ? kRows[*found].name : "NSS_UNKNOWN";
}

const NssMsgTypeRow* NssMsgTypeRows(std::size_t& count) noexcept {
    count = kRowCount;
    return kRows;
}

bool NssMsgTypeFromName(std::string_view name, std::uint16_t& value) noexcept {
    if (name.substr(0, kPrefix.size()) == kPrefix) {
        name.remove_prefix(kPrefix.size());
    }
    const auto& order = TheIndex().byName;
    const auto found =
        std::lower_bound(order.begin(), order.end(), name,
                         [](std::uint16_t row, std::string_view wanted) { return BareName(kRows[row]) < wanted; });
    if (found == order.end() || BareName(kRows[*found]) != name) {
        return false;
    }
    value = kRows[*found].value;
    return true;
}
