#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace gvxctl {

// Puts NAL units together again from RTP payloads, H.264 (RFC 6184: single NAL 5.6, STAP-A 5.7.1, FU-A 5.8) and
// H.265 (RFC 7798: single NAL 4.4.1, aggregation 4.4.2, FU 4.4.3). A fragmented unit of which a piece is missing is
// thrown away whole. One thread.
class Depacketizer {
public:
    enum class Codec { H264, H265 };
    // One whole NAL unit, without start code. The bytes are valid during the call.
    using Output = std::function<void(const std::uint8_t* nal, std::size_t length)>;

    Depacketizer(Codec codec, Output output) : m_codec(codec), m_output(std::move(output)) {}

    // afterGap: something is missing right ahead of this payload.
    void Take(const std::uint8_t* payload, std::size_t length, bool afterGap);
    // Ends a stream: a unit still open has lost its end.
    void Finish();

    std::uint64_t Units() const { return m_units; }
    std::uint64_t DroppedUnits() const { return m_dropped; }     // fragmented units thrown away
    std::uint64_t BadPayloads() const { return m_badPayloads; }  // not of any known form

private:
    void TakeH264(const std::uint8_t* payload, std::size_t length);
    void TakeH265(const std::uint8_t* payload, std::size_t length);
    void TakeAggregate(const std::uint8_t* data, std::size_t length);
    void TakeFragment(std::uint8_t fuHead, const std::uint8_t* nalHead, std::size_t nalHeadLength,
                      const std::uint8_t* data, std::size_t length);
    void DropOpenUnit();
    void SkipRest(std::uint8_t fuHead);
    void Emit(const std::uint8_t* nal, std::size_t length);

    Codec m_codec;
    Output m_output;
    bool m_open = false;      // a fragmented unit has begun
    bool m_skipping = false;  // fragments of a unit already counted as thrown away may follow
    std::string m_unit;
    std::uint64_t m_units = 0;
    std::uint64_t m_dropped = 0;
    std::uint64_t m_badPayloads = 0;
};

}  // namespace gvxctl
