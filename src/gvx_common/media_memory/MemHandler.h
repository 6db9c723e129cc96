#pragma once

#include <utility>

class ACE_Message_Block;

// A page and a pointer into it.
using PosPtrPair = std::pair<ACE_Message_Block*, char*>;

// A growable byte buffer made of 2048-byte blocks of g_mediaPool, chained through cont(). A large picture is carried
// and copied page by page and never lies in one piece.
//
// Position p lies on page p / 2048 at offset p % 2048. Once anything is reserved there are length / 2048 + 1 pages, so
// that the length itself is a legal position with a page behind it. A page's rd_ptr stays at its start; its wr_ptr
// marks how far it has been filled. A buffer holds at most 1 GiB a call.
//
// Status results are 0 for success and 1 for a failure, which has written one error line. One thread at a time owns a
// buffer; a buffer that lives in a block is handed over with that block's pointer. Nothing here throws.
class MemHandler {
public:
    static constexpr unsigned int kMaxLength = 0x40000000;

    MemHandler() { Init(); }
    // Frees nothing: a buffer that holds pages is emptied with FreeMem first.
    ~MemHandler() { Init(); }
    MemHandler(const MemHandler&) = delete;
    MemHandler& operator=(const MemHandler&) = delete;

    // Forgets the pages without freeing them.
    void Init();

    unsigned int GetLength() const { return m_allocLen; }
    // The first page, null for an empty buffer; it stays the buffer's.
    ACE_Message_Block* GetHead() const { return m_headPage; }

    // Reserves len more bytes (1 to 1 GiB); pos is where they start. When the pool is exhausted the pages already taken
    // stay with the buffer, which must then be released and not grown further.
    unsigned int AllocMem(unsigned int len, unsigned int& pos);

    // Gives every page back to the pool.
    void FreeMem();

    // Reserves len bytes at the end and copies them in; pos is where they start. What was reserved stays reserved when
    // a later step fails. AddPtrBuf takes them from srcPos of another buffer, which must have been filled through this
    // class.
    unsigned int AddCharBuf(const char* src, unsigned int len, unsigned int& pos);
    unsigned int AddPtrBuf(const MemHandler& src, unsigned int srcPos, unsigned int len, unsigned int& pos);

    // Copies out. What lies beyond the last page is not written, and the result is 0 nevertheless.
    unsigned int MemcpyToChar(char* dst, unsigned int len, unsigned int pos) const;

    // Copy in at dst, which is not moved. A flat copy that outruns the chain stops there and gives 0. From page to page
    // as much is copied as the source pages are filled.
    unsigned int MemcpyFromChar(PosPtrPair& dst, const char* src, unsigned int len);
    unsigned int MemcpyFromPtr(PosPtrPair& dst, PosPtrPair& src, unsigned int len);

    // Position to pair: fails beyond the length, and in an empty buffer. The cost grows with the page number.
    unsigned int Pos2Ptr(unsigned int pos, PosPtrPair& out) const;
    // Pair to position. There is no failure value: callers check the pair beforehand.
    unsigned int Ptr2Pos(PosPtrPair& pair) const;
    // Moves a pair on by len bytes (1 to 1 GiB, not beyond the length); a move to the end of a page gives the start of
    // the next.
    unsigned int Forward(PosPtrPair& pair, unsigned int len);

    // True when both members are set and the pointer lies in the page, or just behind it.
    bool CheckPtrPair(PosPtrPair& pair) const;
    // True when the range lies within the length.
    bool CheckLength(unsigned int pos, unsigned int len);

private:
    bool FindPage(const PosPtrPair& pair, unsigned int& pos) const;
    unsigned int MoveOn(PosPtrPair& dst, unsigned int chunk, unsigned int dstPos) const;

    ACE_Message_Block* m_headPage;     // pages belong to this buffer
    ACE_Message_Block* m_presentPage;  // the last page
    unsigned int m_allocLen;           // bytes reserved
};

// A buffer that lives in a block of the pool of its own. *mb is the caller's until ReleaseMemHandler; null after a
// failure. Each gives 0 or 1.
unsigned int CreateMemHandler(ACE_Message_Block** mb);
// The same with len bytes reserved. pos is only what the error line tells.
unsigned int CreateMemHandlerAndAlloc(ACE_Message_Block** mb, unsigned int len, unsigned int pos);
// Gives the pages and the block back and sets *mb to null; 1 for a null *mb.
unsigned int ReleaseMemHandler(ACE_Message_Block** mb);
// The buffer in such a block.
MemHandler* GetMemHandler(ACE_Message_Block* mb);

// Reads a buffer front to back, at a cost that does not grow with the position.
class MemReader {
public:
    // Starts at pos; what is reserved later is not seen. `handler` must outlive the reader.
    MemReader(const MemHandler& handler, unsigned int pos);

    // Copies the next len bytes, with the results and log lines of MemHandler::MemcpyToChar at that position.
    unsigned int Read(char* dst, unsigned int len);

private:
    const MemHandler& m_handler;
    unsigned int m_pos;
    PosPtrPair m_place{nullptr, nullptr};  // where m_pos lies, null when it is not known
};
