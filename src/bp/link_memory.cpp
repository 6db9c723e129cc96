#include "bp/link_memory.h"

#include <ace/Message_Block.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace BP {

namespace {

// The length of an allocation stands ahead of it.
constexpr std::size_t kHeadBytes = alignof(std::max_align_t);

}  // namespace

LinkAccount::Ptr LinkAccount::Open(std::shared_ptr<LinkMemory> memory) {
    return Ptr(new LinkAccount(std::move(memory)));
}

void LinkAccount::Release() noexcept {
    if (m_users.fetch_sub(1) == 1) {
        delete this;
    }
}

// At no moment do the open links seem to hold more than they do.
void LinkAccount::Charge(std::size_t bytes) noexcept {
    if ((m_bytes.fetch_add(bytes) & kClosed) != 0) {
        m_memory->m_ofClosedLinks += bytes;
    }
    m_memory->m_bytes += bytes;
}

void LinkAccount::Discharge(std::size_t bytes) noexcept {
    const bool closed = (m_bytes.fetch_sub(bytes) & kClosed) != 0;
    m_memory->m_bytes -= bytes;
    if (closed) {
        m_memory->m_ofClosedLinks -= bytes;
    }
}

void LinkAccount::LinkClosed() noexcept {
    m_memory->m_ofClosedLinks += m_bytes.fetch_or(kClosed);
}

std::size_t LinkAccount::BytesOf(const ACE_Message_Block* block) noexcept {
    std::size_t bytes = 0;
    for (; block != nullptr; block = block->cont()) {
        bytes += block->capacity() + kBlockBytes;
    }
    return bytes;
}

void* LinkAccount::malloc(std::size_t bytes) {
    auto* const head = static_cast<char*>(std::malloc(kHeadBytes + bytes));
    if (head == nullptr) {
        return nullptr;
    }
    std::memcpy(head, &bytes, sizeof(bytes));
    ++m_users;
    Charge(bytes + kBlockBytes);
    return head + kHeadBytes;
}

void* LinkAccount::calloc(std::size_t bytes, char initial) {
    void* const memory = malloc(bytes);
    return memory == nullptr ? nullptr : std::memset(memory, initial, bytes);
}

void* LinkAccount::calloc(std::size_t count, std::size_t bytes, char initial) {
    const bool fits = bytes == 0 || count <= static_cast<std::size_t>(-1) / 2 / bytes;
    return fits ? calloc(count * bytes, initial) : nullptr;
}

void LinkAccount::free(void* memory) {
    if (memory == nullptr) {
        return;
    }
    char* const head = static_cast<char*>(memory) - kHeadBytes;
    std::size_t bytes = 0;
    std::memcpy(&bytes, head, sizeof(bytes));
    std::free(head);
    Discharge(bytes + kBlockBytes);
    Release();
}

}  // namespace BP
