#pragma once

namespace BP {

// Whether the calling thread is one that serves links, and so must not wait for a peer.
bool OnLinkThread() noexcept;

// Marks the calling thread for as long as the object lives.
class LinkThreadMark {
public:
    LinkThreadMark() noexcept;
    ~LinkThreadMark();
    LinkThreadMark(const LinkThreadMark&) = delete;
    LinkThreadMark& operator=(const LinkThreadMark&) = delete;
};

}  // namespace BP
