#include "bp/link_thread.h"

namespace BP {

namespace {

thread_local bool t_onLinkThread = false;

}  // namespace

bool OnLinkThread() noexcept {
    return t_onLinkThread;
}

LinkThreadMark::LinkThreadMark() noexcept {
    t_onLinkThread = true;
}

LinkThreadMark::~LinkThreadMark() {
    t_onLinkThread = false;
}

}  // namespace BP
