#include "gateway/settings/number_setting.h"

#include <cerrno>
#include <cstdlib>

namespace gvx {

bool ReadNumber(const std::string& text, long long least, long long most, long long& value) {
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno == ERANGE || number < least || number > most) {
        return false;
    }
    value = number;
    return true;
}

}  // namespace gvx
