#include "base/zvs_error.h"

#include <cstring>

namespace {

struct ErrorRow {
    int code;
    const char* name;
    const char* text;
};

constexpr ErrorRow kRows[] = {
#define ZVS_ERROR_ROW(name, number, text) {number, #name, text},
#include "base/zvs_error_table.inc"
#undef ZVS_ERROR_ROW
};

const ErrorRow* FindRow(int code) {
    for (const ErrorRow& row : kRows) {
        if (row.code == code) {
            return &row;
        }
    }
    return nullptr;
}

}  // namespace

const char* ZvsErrorName(int code) {
    const ErrorRow* row = FindRow(code);
    return row == nullptr ? "ZVS_UNKNOWN" : row->name;
}

const char* ZvsErrorText(int code) {
    const ErrorRow* row = FindRow(code);
    return row == nullptr ? "" : row->text;
}

namespace gvx {

std::string ErrnoText(const char* activity, int error) {
    char text[128] = {0};
    return std::string(activity) + ": " + ::strerror_r(error, text, sizeof(text));
}

}  // namespace gvx
