#pragma once

#include <atomic>
#include <string>

namespace gvxctl {

// Set by SIGINT and SIGTERM once CatchInterrupts has been called, so that a command in progress can end in order.
// Any thread may look; CatchInterrupts belongs to main's.
std::atomic<bool>& Interrupted();
void CatchInterrupts();

// Sleeps in short steps; false when interrupted.
bool SleepUnlessInterrupted(int milliseconds);

// A line on standard output, at once.
void Print(const std::string& text);
// A line on standard error; returns the code that the program is to end with.
int Fail(int code, const std::string& error);

}  // namespace gvxctl
