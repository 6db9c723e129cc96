#pragma once

#include "bp/session.h"

#include <cstdint>
#include <memory>

namespace BP {

// The work for a request type; null when there is none. The work stays alive while the pointer is held, also when
// it is removed meanwhile. Allocates nothing. Any thread.
std::shared_ptr<const SessionWork> FindSessionWork(std::uint32_t reqID);

}  // namespace BP
