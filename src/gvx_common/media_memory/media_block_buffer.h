#pragma once

#include "gvx_common/media_memory/block_queue.h"

#include <atomic>
#include <cstddef>
#include <memory>

class ACE_Message_Block;

// Size of the blocks that carry media packets to the transmission threads.
constexpr unsigned int GVX_MEDIA_BLOCK_SIZE = 2012;

// Pool of equal message blocks, built at start, so that sending a packet allocates nothing. Any thread, except that
// init and close belong to the thread that starts and stops the process.
class CMediaBlockBuffer {
public:
    // The pool of the stream transmission path.
    static CMediaBlockBuffer* instance();

    CMediaBlockBuffer();
    virtual ~CMediaBlockBuffer();
    CMediaBlockBuffer(const CMediaBlockBuffer&) = delete;
    CMediaBlockBuffer& operator=(const CMediaBlockBuffer&) = delete;

    // Fills the pool with count blocks. A block holds size bytes behind reserved bytes of headroom, in which the
    // sender puts the pointer of the stream's record: read and write pointer of a free block stand behind the
    // headroom. 0; 1 with a log line, the pool then being empty. A pool that is filled must be closed before.
    int init(unsigned int size, unsigned int count, unsigned int reserved);

    // Releases the free blocks and refuses further ones: a block still out is released when it is given back.
    void close();

    // A block that is the caller's until freeMediaBlock; null when none comes free within 100 ms.
    ACE_Message_Block* allocMediaBlock();

    // The same for as many as are free, wanted at most: how many, under one lock.
    std::size_t allocMediaBlocks(ACE_Message_Block** blocks, std::size_t wanted);

    // Gives a block back, with all behind it through cont(), and sets block to null. Contents and pointers are reset.
    void freeMediaBlock(ACE_Message_Block*& block);

    // The same for count messages, none of them null, under one lock.
    void freeMediaBlocks(ACE_Message_Block** messages, std::size_t count);

    unsigned int getMaxBlockNum() const { return m_unCount; }
    unsigned int getRemainBlockNum();                              // free now
    unsigned int getFailureTimes() const { return m_AllocTimes; }  // allocations that found no block
    unsigned int getBlockSize() const { return m_unSize; }

private:
    ACE_Message_Block* createMediaBlock(unsigned int size);
    void makeFree(ACE_Message_Block& block) const;
    void giveBack(ACE_Message_Block** blocks, std::size_t count);

    gvx::BlockQueue m_MediaQueue;  // the free blocks
    unsigned int m_unSize = 0;
    unsigned int m_unCount = 0;
    unsigned int m_unReserved = 0;
    std::atomic<unsigned int> m_AllocTimes{0};
    std::atomic<unsigned int> m_FreeTimes{0};  // blocks that could not be given back
};

// Growable holder of bytes. Begins with MEDIA_BUFF_SIZE bytes (1500 when not configured) and grows by doubling, so
// appending byte by byte stays cheap. One thread at a time.
class CDataUnit {
public:
    CDataUnit() = default;
    ~CDataUnit() = default;
    CDataUnit(const CDataUnit&) = delete;
    CDataUnit& operator=(const CDataUnit&) = delete;

    // Adds bytes at the end. 0; 1 for a null pointer, or when the size would overflow or memory runs out, with the
    // content unchanged. data may lie inside this holder. A length of 0 succeeds.
    int append(const char* data, unsigned int length);

    // Forgets the content and keeps the memory.
    void reset() { m_offset = 0; }

    unsigned int length() const { return m_offset; }

    // The bytes; null before the first append. Valid until the next append.
    char* base() { return m_buffer.get(); }
    const char* base() const { return m_buffer.get(); }

private:
    std::unique_ptr<char[]> m_buffer;
    unsigned int m_offset = 0;
    unsigned int m_buffSize = 0;
};
