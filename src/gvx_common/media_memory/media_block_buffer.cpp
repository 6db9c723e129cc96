#include "gvx_common/media_memory/media_block_buffer.h"

#include "base/log.h"
#include "gvx_common/config/setting_table.h"

#include <ace/Message_Block.h>
#include <ace/OS_NS_errno.h>
#include <ace/OS_NS_sys_time.h>
#include <ace/Time_Value.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace {

constexpr suseconds_t kAllocWaitUs = 100000;
// The queue never fills up, since its marks hold all blocks; the wait only bounds what a closed or foreign queue
// could cost.
constexpr suseconds_t kFreeWaitUs = 100000;

ACE_Time_Value DeadlineIn(suseconds_t microseconds) {
    return ACE_OS::gettimeofday() + ACE_Time_Value(0, microseconds);
}

// Room for one packet, as configured.
unsigned int FirstBufferSize() {
    return static_cast<unsigned int>(gvx::SettingNumber(gvx::Setting::MEDIA_BUFF_SIZE));
}

}  // namespace

CMediaBlockBuffer* CMediaBlockBuffer::instance() {
    static CMediaBlockBuffer g_MediaBuffer;
    return &g_MediaBuffer;
}

CMediaBlockBuffer::CMediaBlockBuffer() = default;

CMediaBlockBuffer::~CMediaBlockBuffer() {
    close();
}

int CMediaBlockBuffer::init(unsigned int size, unsigned int count, unsigned int reserved) {
    if (m_unCount != 0 || size == 0 || count == 0 || reserved > std::numeric_limits<unsigned int>::max() - size) {
        GVX_LOG_ERR("Media Block Buffer", "init media queue fail.");
        return ZVS_FAIL;
    }
    const std::size_t mark = (static_cast<std::size_t>(size) + reserved) * count + 1;
    m_MediaQueue.close();
    if (m_MediaQueue.open(mark, mark) == -1) {
        GVX_LOG_ERR("Media Block Buffer", "init media queue fail.");
        return ZVS_FAIL;
    }
    m_MediaQueue.Reserve(count);
    m_unSize = size;
    m_unReserved = reserved;
    for (unsigned int i = 0; i < count; ++i) {
        ACE_Message_Block* block = createMediaBlock(size + reserved);
        if (block == nullptr) {
            GVX_LOG_ERR("Media Block Buffer", "Create mb fail, index[%u].", i);
            close();
            return ZVS_FAIL;
        }
        ACE_Time_Value deadline = DeadlineIn(kFreeWaitUs);
        if (m_MediaQueue.enqueue_tail(block, &deadline) == -1) {
            GVX_LOG_ERR("Media Block Buffer", "Enqueue mb fail, index[%u].", i);
            block->release();
            close();
            return ZVS_FAIL;
        }
    }
    m_unCount = count;
    GVX_LOG(OM_LOG_DEBUG, "Media Block Buffer", "Media Block Buffer init success.");
    return ZVS_SUCCEED;
}

void CMediaBlockBuffer::close() {
    m_MediaQueue.close();
    m_unCount = 0;
}

ACE_Message_Block* CMediaBlockBuffer::createMediaBlock(unsigned int size) {
    ACE_Message_Block* block = new (std::nothrow) ACE_Message_Block(size);
    if (block == nullptr) {
        GVX_LOG_ERR_CODE("Media Block Buffer", ZVS_ALLOC_MEMORY_ERROR, "alloc message block fail.");
        return nullptr;
    }
    if (block->data_block() == nullptr) {
        GVX_LOG_ERR_CODE("Media Block Buffer", ZVS_ALLOC_MEMORY_ERROR, "data block is NULL.");
        block->release();
        return nullptr;
    }
    block->rd_ptr(block->base() + m_unReserved);
    block->wr_ptr(block->rd_ptr());
    return block;
}

ACE_Message_Block* CMediaBlockBuffer::allocMediaBlock() {
    ACE_Message_Block* block = nullptr;
    return allocMediaBlocks(&block, 1) == 1 ? block : nullptr;
}

std::size_t CMediaBlockBuffer::allocMediaBlocks(ACE_Message_Block** blocks, std::size_t wanted) {
    if (m_unSize == GVX_MEDIA_BLOCK_SIZE) {
        GVX_DEBUG("allocMediaBlock, media block count = %lu", static_cast<unsigned long>(m_MediaQueue.message_count()));
    }
    // Blocks that were given back last are those that the processor's caches still hold. The clock is asked only when
    // there is none.
    std::size_t taken = m_MediaQueue.TakeLast(blocks, wanted, ACE_Time_Value::zero);
    if (taken == 0 && errno == ESHUTDOWN) {
        GVX_LOG_ERR("Alloc media block fail.", "Media queue state null.");
        return 0;
    }
    if (taken == 0) {
        taken = m_MediaQueue.TakeLast(blocks, wanted, DeadlineIn(kAllocWaitUs));
        m_AllocTimes += taken == 0 ? 1 : 0;
    }
    return taken;
}

void CMediaBlockBuffer::freeMediaBlock(ACE_Message_Block*& block) {
    freeMediaBlocks(&block, 1);
    block = nullptr;
}

void CMediaBlockBuffer::freeMediaBlocks(ACE_Message_Block** messages, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        ACE_Message_Block* behind = messages[i]->cont();
        makeFree(*messages[i]);
        while (behind != nullptr) {
            ACE_Message_Block* block = behind;
            behind = block->cont();
            makeFree(*block);
            giveBack(&block, 1);
        }
    }
    giveBack(messages, count);
}

void CMediaBlockBuffer::makeFree(ACE_Message_Block& block) const {
    block.cont(nullptr);
    block.prev(nullptr);
    block.reset();
    block.rd_ptr(std::min<std::size_t>(m_unReserved, block.size()));
    block.wr_ptr(block.rd_ptr());
}

void CMediaBlockBuffer::giveBack(ACE_Message_Block** blocks, std::size_t count) {
    for (std::size_t given = m_MediaQueue.AppendSome(blocks, count); given < count; ++given) {
        ACE_Time_Value deadline = DeadlineIn(kFreeWaitUs);
        if (m_MediaQueue.enqueue_tail(blocks[given], &deadline) != -1) {
            continue;
        }
        GVX_LOG_ERR("Media Block Buffer freeMediaBlock fail, enqueue fail.",
                    "errno=%d, count %d, level %d~%d, message_bytes %d, message_length %d", ACE_OS::last_error(),
                    static_cast<int>(m_MediaQueue.message_count()), static_cast<int>(m_MediaQueue.low_water_mark()),
                    static_cast<int>(m_MediaQueue.high_water_mark()), static_cast<int>(m_MediaQueue.message_bytes()),
                    static_cast<int>(m_MediaQueue.message_length()));
        ++m_FreeTimes;
        blocks[given]->release();
    }
}

unsigned int CMediaBlockBuffer::getRemainBlockNum() {
    return static_cast<unsigned int>(m_MediaQueue.message_count());
}

int CDataUnit::append(const char* data, unsigned int length) {
    if (length == 0) {
        return ZVS_SUCCEED;
    }
    constexpr unsigned int kMax = std::numeric_limits<unsigned int>::max();
    if (data == nullptr || length > kMax - m_offset) {
        return ZVS_FAIL;
    }
    const unsigned int needed = m_offset + length;
    if (needed <= m_buffSize) {
        std::memmove(m_buffer.get() + m_offset, data, length);
        m_offset = needed;
        return ZVS_SUCCEED;
    }
    const unsigned int doubled = m_buffSize > kMax / 2 ? kMax : m_buffSize * 2;
    const unsigned int size = std::max(needed, m_buffSize == 0 ? FirstBufferSize() : doubled);
    std::unique_ptr<char[]> grown(new (std::nothrow) char[size]);
    if (grown == nullptr) {
        return ZVS_FAIL;
    }
    if (m_offset != 0) {
        std::memcpy(grown.get(), m_buffer.get(), m_offset);
    }
    std::memcpy(grown.get() + m_offset, data, length);
    m_buffer = std::move(grown);
    m_buffSize = size;
    m_offset = needed;
    return ZVS_SUCCEED;
}
