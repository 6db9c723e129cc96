#pragma once

#include <atomic>

namespace gvxctl {

// Set by SIGINT and SIGTERM once CatchInterrupts has been called, so that a command in progress can end in order.
// Any thread may look; CatchInterrupts belongs to main's.
std::atomic<bool>& Interrupted();
void CatchInterrupts();

// Sleeps in short steps; false when interrupted.
bool SleepUnlessInterrupted(int milliseconds);

}  // namespace gvxctl
