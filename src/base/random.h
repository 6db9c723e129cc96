#pragma once

#include <cstddef>

namespace CBB {

// Fills the buffer with random bytes fit for keys. 0 for success; 1 for a null buffer or when the system has none
// to give (the buffer is then zeroed). A length of 0 succeeds. Any thread.
int GenerateRandom(void* buffer, std::size_t length);

}  // namespace CBB
