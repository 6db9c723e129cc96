#pragma once

#include <cstddef>
#include <cstdint>

// A PES packet taken apart (ISO/IEC 13818-1, 2.4.3.6).
struct HstPESPacket {
    const unsigned char* pPayload = nullptr;  // points into the bytes that were parsed
    unsigned int uiPayloadLen = 0;
    unsigned int uiPacketLen = 0;  // bytes of the whole packet as far as they are there
    std::uint64_t ullPts = 0;      // presentation and decoding time, 33 bits, 90 kHz
    std::uint64_t ullDts = 0;      // the presentation time where no other is given
    std::uint8_t ucStreamId = 0;
    bool bHavePts = false;
    bool bHaveDts = false;
    bool bAligned = false;  // data_alignment_indicator: an access unit begins here
};

// How the start of a buffer reads as a PES packet.
enum enPESResult {
    PES_OK = 0,
    PES_INCOMPLETE,    // the head is not all there yet
    PES_NO_START,      // no packet start code 00 00 01 BC or above
    PES_WRONG_HEAD,    // the marker bits of an MPEG-2 head are missing
    PES_WRONG_LENGTH,  // the head is longer than the packet
};

// Takes single PES packets apart. Keeps nothing and copies nothing. Any thread.
class CHstPESParse {
public:
    // Reads the packet at the start of pData. A payload that the buffer cuts is given as far as it is there: the
    // packet's own length is then beyond uiPacketLen and is given by PacketLength. A packet with length 0 runs to the
    // end of the buffer. Streams whose packets have no head of their own (maps, padding, private stream 2 and the
    // others of table 2-21) give their bytes without times. A failure leaves packet as it was.
    static enPESResult Read(const unsigned char* pData, std::size_t size, HstPESPacket& packet);

    // As Read, with a line in the log for a failure. 0; 1 for a failure.
    int ParsePES(const unsigned char* pData, int iLen, HstPESPacket& packet) const;

    // Bytes of the whole packet by its length field; 0 when that is 0. pData holds six bytes or more.
    static std::size_t PacketLength(const unsigned char* pData);

    // Whether packets of the stream have the head with flags and times.
    static bool HasHead(std::uint8_t streamId);
};

// A name for the log.
const char* PesResultName(enPESResult result);
