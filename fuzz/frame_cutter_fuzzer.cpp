// A stream of bytes, cut into frames as a link does and as the platform's side does. The first byte of the input says
// how the stream arrives: whole, or in pieces that grow by that many bytes. Both cutters must find the frames that the
// length fields name, whatever the pieces.

#include "bp/frame_reader.h"
#include "gvxctl/frame.h"
#include "nss/nss_msg.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kMaxFrameBytes = 4096;
constexpr std::size_t kVersionAt = 0;
constexpr std::size_t kLengthAt = 112;

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

std::uint32_t NumberAt(const std::string& bytes, std::size_t at, std::size_t size) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    }
    return value;
}

struct Cut {
    std::vector<std::string> frames;
    bool broken = false;
};

// What the protocol says, on the whole stream at once. The link refuses a foreign version, the tool does not look.
Cut ByLengthFields(std::string stream, bool checkVersion) {
    Cut cut;
    while (stream.size() >= kNssHeaderBytes && !cut.broken) {
        const std::size_t length = NumberAt(stream, kLengthAt, 4);
        cut.broken = length < kNssHeaderBytes || length > kMaxFrameBytes ||
                     (checkVersion && NumberAt(stream, kVersionAt, 2) != kNssProtocolVersion);
        if (cut.broken || stream.size() < length) {
            break;
        }
        cut.frames.push_back(stream.substr(0, length));
        stream.erase(0, length);
    }
    return cut;
}

// Hands the stream over piece by piece until take refuses.
template <typename Take>
void InPieces(const std::string& stream, std::size_t step, Take take) {
    std::size_t size = step == 0 ? stream.size() : step;
    for (std::size_t at = 0; at < stream.size(); size += step) {
        const std::string piece = stream.substr(at, size);  // its own memory: a read beyond it is seen
        if (!take(piece)) {
            return;
        }
        at += piece.size();
    }
}

Cut ByLink(const std::string& stream, std::size_t step) {
    Cut cut;
    BP::FrameReader reader;
    reader.SetMaxFrameBytes(kMaxFrameBytes);
    InPieces(stream, step, [&](const std::string& piece) {
        for (std::size_t at = 0; at < piece.size();) {
            at += reader.Feed(piece.data() + at, piece.size() - at);
            if (reader.GetFault() != BP::FrameReader::Fault::None) {
                cut.broken = true;
                return false;
            }
            if (reader.Complete()) {
                const BP::MessageBlockPtr frame = reader.Take();
                cut.frames.emplace_back(frame->rd_ptr(), frame->length());
            }
        }
        return true;
    });
    return cut;
}

Cut ByPlatform(const std::string& stream, std::size_t step) {
    Cut cut;
    gvxctl::FrameCutter cutter(kMaxFrameBytes);
    InPieces(stream, step, [&](const std::string& piece) {
        cutter.Feed(piece.data(), piece.size());
        gvxctl::Frame frame;
        std::string error;
        gvxctl::FrameCutter::Result result = cutter.Next(frame, error);
        for (; result == gvxctl::FrameCutter::Result::Ready; result = cutter.Next(frame, error)) {
            NssMsgHeader head = frame.head;
            NssSwapHeader(head);
            cut.frames.push_back(std::string(reinterpret_cast<const char*>(&head), sizeof(head)) + frame.body);
        }
        cut.broken = result == gvxctl::FrameCutter::Result::Broken;
        Require(cut.broken == !error.empty());
        return !cut.broken;
    });
    return cut;
}

void RequireSame(const Cut& expected, const Cut& found) {
    Require(expected.broken == found.broken && expected.frames == found.frames);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string stream(reinterpret_cast<const char*>(data) + 1, size - 1);
    RequireSame(ByLengthFields(stream, true), ByLink(stream, data[0]));
    RequireSame(ByLengthFields(stream, false), ByPlatform(stream, data[0]));
    return 0;
}
