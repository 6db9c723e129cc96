#include "support/wait_until.h"

#include <thread>

bool WaitUntil(const std::function<bool()>& predicate, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() >= end) {
            return predicate();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}
