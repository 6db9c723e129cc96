#include "base/clock.h"
#include "bp/cmd.h"

namespace BP {

std::time_t OSTime::Time() {
    return gvx::WallSeconds();
}

}  // namespace BP
