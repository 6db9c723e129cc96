#include "bp/element_type.h"

namespace BP {

namespace {

struct ElementRow {
    const char* name;
    int code;
};

constexpr ElementRow kElements[] = {
    {"SCU", 10105}, {"OMU", 60105}, {"MU", 30105}, {"IMGU", 240105}, {"GVX", 40105},
};
constexpr int kUnidentified = 80105;

}  // namespace

int ElementTypeOf(const std::string& linkID) {
    for (const ElementRow& element : kElements) {
        if (linkID.find(element.name) != std::string::npos) {
            return element.code;
        }
    }
    return kUnidentified;
}

}  // namespace BP
