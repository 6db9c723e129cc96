#include "base/random.h"

#include <openssl/rand.h>

#include <algorithm>
#include <climits>
#include <cstring>

namespace CBB {

int GenerateRandom(void* buffer, std::size_t length) {
    if (buffer == nullptr) {
        return 1;
    }
    auto* bytes = static_cast<unsigned char*>(buffer);
    for (std::size_t done = 0; done < length;) {
        const std::size_t piece = std::min<std::size_t>(length - done, INT_MAX);
        if (RAND_bytes(bytes + done, static_cast<int>(piece)) != 1) {
            std::memset(buffer, 0, length);
            return 1;
        }
        done += piece;
    }
    return 0;
}

}  // namespace CBB
