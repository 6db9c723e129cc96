#pragma once

#include <cstdint>
#include <optional>

#include "bp/session.h"

// The session class that serves a request type; nothing for a type that is not served. Any thread.
std::optional<BP::SessionKind> FindSessionKind(std::uint32_t reqID) noexcept;
