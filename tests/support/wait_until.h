#pragma once

#include <chrono>
#include <functional>

// Waits until the predicate holds, looking every 2 ms, for limit at most. Gives the predicate's last answer.
bool WaitUntil(const std::function<bool()>& predicate, std::chrono::milliseconds limit = std::chrono::seconds(20));
