#include "base/random.h"

#include <cerrno>
#include <cstring>

#include <sys/random.h>

namespace CBB {

// The system's own source keeps nothing for a thread: a cryptographic library's generator does, and loses it when the
// thread is still on its way out at the end of the process.
int GenerateRandom(void* buffer, std::size_t length) {
    if (buffer == nullptr) {
        return 1;
    }
    auto* bytes = static_cast<unsigned char*>(buffer);
    for (std::size_t done = 0; done < length;) {
        const ssize_t got = getrandom(bytes + done, length - done, 0);
        if (got < 0 && errno != EINTR) {
            std::memset(buffer, 0, length);
            return 1;
        }
        done += got < 0 ? 0 : static_cast<std::size_t>(got);
    }
    return 0;
}

}  // namespace CBB
