#pragma once

#include "bp/session.h"

#include <cstdint>
#include <optional>

// The session class that serves a request type; nothing for a type that is not served. Any thread.
std::optional<BP::SessionKind> FindSessionKind(std::uint32_t reqID) noexcept;
