#include "bp/frame_clone.h"

#include <ace/Malloc_Allocator.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <typeinfo>

namespace BP {

namespace {

// Stands in front of the memory of one block and hands it out in parts. It goes with the last part that is freed. What
// the block asks for later, to grow or to be cloned, comes from the heap and counts as a part too.
class alignas(std::max_align_t) FrameMemory final : public ACE_New_Allocator {
public:
    static FrameMemory* Make(std::size_t bytes) noexcept {
        void* const memory = std::malloc(sizeof(FrameMemory) + bytes);
        return memory == nullptr ? nullptr : new (memory) FrameMemory(bytes);
    }
    static constexpr std::size_t RoomFor(std::size_t bytes) {
        constexpr std::size_t kAlign = alignof(std::max_align_t);
        return (bytes + kAlign - 1) / kAlign * kAlign;
    }

    void* malloc(std::size_t bytes) override {
        const std::size_t room = RoomFor(bytes);
        const bool fits = room <= m_bytes - m_used;
        void* const part = fits ? Begin() + m_used : std::malloc(bytes);
        m_used += fits ? room : 0;
        m_parts += part != nullptr ? 1 : 0;
        return part;
    }
    void* calloc(std::size_t bytes, char initial) override {
        void* const part = malloc(bytes);
        return part == nullptr ? nullptr : std::memset(part, initial, bytes);
    }
    void* calloc(std::size_t count, std::size_t bytes, char initial) override { return calloc(count * bytes, initial); }
    void free(void* part) override {
        if (part == nullptr) {
            return;
        }
        if (part < Begin() || part >= Begin() + m_bytes) {
            std::free(part);
        }
        if (--m_parts == 0) {
            this->~FrameMemory();
            std::free(this);
        }
    }

private:
    explicit FrameMemory(std::size_t bytes) : m_bytes(bytes) {}
    char* Begin() { return reinterpret_cast<char*>(this + 1); }

    const std::size_t m_bytes;
    std::size_t m_used = 0;
    std::atomic<int> m_parts{0};
};

}  // namespace

MessageBlockPtr CloneFrame(const ACE_Message_Block& block) noexcept {
    const std::size_t size = block.size();
    const ACE_Data_Block* const source = block.data_block();
    // What a link's memory counts is cloned in it. Without bytes there is nothing to join.
    if (size == 0 || block.cont() != nullptr || source == nullptr || source->allocator_strategy() == nullptr ||
        typeid(*source->allocator_strategy()) != typeid(ACE_New_Allocator) ||
        typeid(block) != typeid(ACE_Message_Block) || typeid(*source) != typeid(ACE_Data_Block)) {
        return MessageBlockPtr(block.clone());
    }
    FrameMemory* const memory =
        FrameMemory::Make(FrameMemory::RoomFor(sizeof(ACE_Message_Block)) +
                          FrameMemory::RoomFor(sizeof(ACE_Data_Block)) + FrameMemory::RoomFor(size));
    if (memory == nullptr) {
        return nullptr;
    }
    void* const blockRoom = memory->malloc(sizeof(ACE_Message_Block));
    void* const dataRoom = memory->malloc(sizeof(ACE_Data_Block));
    char* const bytes = static_cast<char*>(memory->malloc(size));
    std::memcpy(bytes, block.base(), size);
    auto* const data = new (dataRoom) ACE_Data_Block(size, block.msg_type(), bytes, memory, nullptr, 0, memory);
    auto* const copy = new (blockRoom) ACE_Message_Block(data, 0, memory);
    copy->msg_priority(block.msg_priority());
    copy->rd_ptr(static_cast<std::size_t>(block.rd_ptr() - block.base()));
    copy->wr_ptr(static_cast<std::size_t>(block.wr_ptr() - block.base()));
    return MessageBlockPtr(copy);
}

}  // namespace BP
