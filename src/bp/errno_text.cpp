#include "bp/errno_text.h"

#include <cstring>

namespace BP {

std::string ErrnoText(const char* activity, int error) {
    char text[128] = {0};
    return std::string(activity) + ": " + ::strerror_r(error, text, sizeof(text));
}

}  // namespace BP
