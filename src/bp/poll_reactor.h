#pragma once

#include <memory>

class ACE_Reactor;

namespace BP {

// A reactor over epoll whose descriptor is close-on-exec, without a notification pipe of its own. Null, with errno,
// when its descriptor could not be made.
std::unique_ptr<ACE_Reactor> MakePollReactor();

}  // namespace BP
