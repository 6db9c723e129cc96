#pragma once

#include <cstddef>
#include <memory>

namespace gvx {

// Objects that a misbehaving plug-in may still use, although their time is over: a thread of it may run on. They are
// kept for the life of the process rather than pulled from under it. Any thread.
void LeaveBehind(std::shared_ptr<void> object);
// Number of objects kept; non-zero means that the process must not end through destructors.
std::size_t LeftBehindCount();

}  // namespace gvx
