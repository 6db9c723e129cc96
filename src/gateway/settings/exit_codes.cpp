#include "gateway/settings/exit_codes.h"

namespace gvx {

std::string ExitCodeTable() {
    std::string text = "Exit codes:\n";
    for (const ExitCodeRow& row : kExitCodeRows) {
        std::string number = std::to_string(static_cast<int>(row.code));
        number.insert(0, number.size() < 2 ? 1 : 0, ' ');
        text += "  " + number + "  " + row.meaning + "\n";
    }
    return text;
}

}  // namespace gvx
