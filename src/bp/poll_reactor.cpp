#include "bp/poll_reactor.h"

#include <ace/ACE.h>
#include <ace/Dev_Poll_Reactor.h>
#include <ace/Reactor.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include <fcntl.h>

namespace BP {

namespace {

// The reactor keeps a row for each descriptor number, so an unlimited process must not be taken at its word.
constexpr int kMaxDescriptors = 65536;

class PollReactor : public ACE_Dev_Poll_Reactor {
public:
    explicit PollReactor(std::size_t descriptors) : ACE_Dev_Poll_Reactor(descriptors, true, nullptr, nullptr, 1) {
        if (poll_fd_ != ACE_INVALID_HANDLE) {
            ::fcntl(poll_fd_, F_SETFD, FD_CLOEXEC);
        }
    }
};

}  // namespace

std::unique_ptr<ACE_Reactor> MakePollReactor() {
    const int limit = ACE::max_handles();
    const int descriptors = limit > 0 ? std::min(limit, kMaxDescriptors) : kMaxDescriptors;
    std::unique_ptr<PollReactor> reactor(new (std::nothrow) PollReactor(static_cast<std::size_t>(descriptors)));
    if (reactor == nullptr || !reactor->initialized()) {
        return nullptr;
    }
    return std::make_unique<ACE_Reactor>(reactor.release(), true);
}

}  // namespace BP
