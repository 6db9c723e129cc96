// Program streams and PES packets: bytes as they come, whole and cut; and streams made of the input, which give the
// same however they are cut.

#include "fuzz_input.h"

#include "gvx_common/rtp/pes_parse.h"
#include "gvx_common/rtp/ps2es_parse.h"

#include <algorithm>

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Streams {
    Bytes video;
    Bytes audio;
    bool whole = true;
    bool operator==(const Streams& other) const {
        return video == other.video && audio == other.audio && whole == other.whole;
    }
};

// Parses the stream in pieces, each in a block of its own size.
template <typename NextSize>
Streams Parse(const Bytes& stream, NextSize nextSize) {
    CPs2EsParse parser;
    HstPSHeader header;
    Streams streams;
    for (std::size_t at = 0; at < stream.size();) {
        const std::size_t size = std::min(stream.size() - at, std::max<std::size_t>(1, nextSize()));
        const Bytes piece(stream.begin() + static_cast<std::ptrdiff_t>(at),
                          stream.begin() + static_cast<std::ptrdiff_t>(at + size));
        unsigned char *video, *audio;
        unsigned int videoLen, audioLen;
        const int result =
            parser.ParsePSPack(piece.data(), static_cast<int>(size), video, videoLen, audio, audioLen, header);
        fuzz::Require(result == 0 || videoLen + audioLen == 0);
        streams.whole = streams.whole && result == 0;
        streams.video.insert(streams.video.end(), video, video + videoLen);
        streams.audio.insert(streams.audio.end(), audio, audio + audioLen);
        at += size;
    }
    fuzz::Require(streams.video.size() + streams.audio.size() <= stream.size());
    return streams;
}

void Append(Bytes& to, std::initializer_list<std::uint8_t> bytes) {
    to.insert(to.end(), bytes);
}

// A program stream with what the input says, and what is to come out of it.
Bytes Make(fuzz::Input& input, Streams& expected) {
    Bytes stream;
    while (!input.IsEmpty() && stream.size() < 20000) {
        const std::uint8_t what = input.Byte();
        Bytes payload = input.Spun(input.Word() % 700);
        std::replace(payload.begin(), payload.end(), std::uint8_t{0}, std::uint8_t{7});
        switch (what % 6) {
            case 0:
                Append(stream,
                       {0, 0, 1, 0xBA, 0x64, 1, 4, 1, 4, 1, 1, 2, 3, static_cast<std::uint8_t>(0xF8 | what % 8)});
                stream.insert(stream.end(), what % 8, 0xFF);
                continue;
            case 1:
                stream.insert(stream.end(), what, 0);
                continue;
            case 2:
                Append(stream, {0, 0, 1, 0xBC, 0, 14, 0xE0, 0xFF, 0, 0, 0, 4, 0x1B, 0xE0, 0, 0, 1, 2, 3, 4});
                continue;
            default:
                break;
        }
        const std::uint8_t id = what % 6 == 3 ? 0xE0 : what % 6 == 4 ? 0xC0 : 0xBD;
        const std::size_t length = 8 + payload.size();
        Append(stream, {0, 0, 1, id, static_cast<std::uint8_t>(length >> 8), static_cast<std::uint8_t>(length), 0x80,
                        0x80, 5, 0x21, 1, 1, 1, 1});
        stream.insert(stream.end(), payload.begin(), payload.end());
        if (id != 0xBD) {
            Bytes& to = id == 0xE0 ? expected.video : expected.audio;
            to.insert(to.end(), payload.begin(), payload.end());
        }
    }
    return stream;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    HstPESPacket packet;
    if (CHstPESParse::Read(data, size, packet) == PES_OK) {
        fuzz::Require(packet.pPayload >= data + 6 &&
                      packet.pPayload + packet.uiPayloadLen == data + packet.uiPacketLen);
        fuzz::Require(packet.uiPacketLen <= size && packet.ullPts >> 33 == 0 && packet.ullDts >> 33 == 0);
    }
    fuzz::Input input(data, size);
    const std::uint32_t seed = input.Long();
    std::uint32_t state = seed | 1u;
    const auto cut = [&state] {
        state = state * 1664525 + 1013904223;
        return std::size_t{state >> 24};
    };
    const Bytes raw(data, data + size);
    Parse(raw, [&] { return raw.size(); });
    Parse(raw, cut);

    Streams expected;
    const Bytes made = Make(input, expected);
    fuzz::Require(Parse(made, [&] { return made.size(); }) == expected);
    fuzz::Require(Parse(made, cut) == expected);
    return 0;
}
