#include "gateway/plugins/left_behind.h"

#include <mutex>
#include <vector>

namespace gvx {

namespace {

struct Keep {
    std::mutex mutex;
    std::vector<std::shared_ptr<void>> objects;  // Guarded by mutex.
};

// Never destroyed: a thread that runs on may outlive every static object.
Keep& KeptObjects() {
    static Keep* keep = new Keep;
    return *keep;
}

}  // namespace

void LeaveBehind(std::shared_ptr<void> object) {
    Keep& keep = KeptObjects();
    const std::lock_guard<std::mutex> lock(keep.mutex);
    keep.objects.push_back(std::move(object));
}

std::size_t LeftBehindCount() {
    Keep& keep = KeptObjects();
    const std::lock_guard<std::mutex> lock(keep.mutex);
    return keep.objects.size();
}

}  // namespace gvx
