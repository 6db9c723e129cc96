#pragma once

#include <ace/Malloc_Allocator.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <utility>

class ACE_Message_Block;

namespace BP {

// What all links hold together: frames that are not whole, frames that wait to be served and their copies, frames that
// wait to be sent. Counted as allocated. Any thread.
class LinkMemory {
public:
    explicit LinkMemory(std::size_t limit) : m_limit(limit) {}

    std::size_t Limit() const { return m_limit; }
    std::size_t Bytes() const { return m_bytes; }
    bool Over() const { return m_bytes > m_limit; }
    // The same without what waits to be served of links that have closed: to close another link would not free that.
    bool OpenLinksAreOver() const { return m_bytes > m_limit + m_ofClosedLinks; }

private:
    friend class LinkAccount;
    const std::size_t m_limit;
    std::atomic<std::size_t> m_bytes{0};
    std::atomic<std::size_t> m_ofClosedLinks{0};
};

// One link's part of it, and the allocator of the blocks whose frames the link brings. A block may outlive its link,
// and a clone of it is counted too: the account lasts as long as anything of it does. Any thread.
class LinkAccount final : public ACE_New_Allocator {
public:
    // Beside its data a block has a head, a record of its data, and what the heap needs for the three.
    static constexpr std::size_t kBlockBytes = 256;
    // What no link is denied, so that small frames pass whatever others hold.
    static constexpr std::size_t kAlwaysBytes = 64u * 1024u;

    struct Close {
        void operator()(LinkAccount* account) const noexcept { account->Release(); }
    };
    using Ptr = std::unique_ptr<LinkAccount, Close>;
    // memory is kept until the last of the account has gone.
    static Ptr Open(std::shared_ptr<LinkMemory> memory);

    std::size_t Bytes() const { return m_bytes & ~kClosed; }
    const LinkMemory& All() const { return *m_memory; }
    // Whether this link must not take more: all have too much, and it has more than what is never denied.
    bool Denied() const { return m_memory->Over() && Bytes() > kAlwaysBytes; }
    // The link has closed; what is left of it still counts, but as nobody's who is there. Once.
    void LinkClosed() noexcept;

    void Charge(std::size_t bytes) noexcept;
    void Discharge(std::size_t bytes) noexcept;
    // What a block and all behind it take.
    static std::size_t BytesOf(const ACE_Message_Block* block) noexcept;

    // ACE_Allocator, for the data of blocks.
    void* malloc(std::size_t bytes) override;
    void* calloc(std::size_t bytes, char initial = '\0') override;
    void* calloc(std::size_t count, std::size_t bytes, char initial = '\0') override;
    void free(void* memory) override;

private:
    explicit LinkAccount(std::shared_ptr<LinkMemory> memory) : m_memory(std::move(memory)) {}
    ~LinkAccount() override = default;
    void Release() noexcept;

    // Marks m_bytes when the link has closed: the mark and the number change as one.
    static constexpr std::size_t kClosed = ~(static_cast<std::size_t>(-1) >> 1);

    const std::shared_ptr<LinkMemory> m_memory;
    std::atomic<std::size_t> m_bytes{0};
    std::atomic<std::size_t> m_users{1};  // its owner, and each allocation
};

}  // namespace BP
