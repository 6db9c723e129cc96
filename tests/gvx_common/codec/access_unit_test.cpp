#include "gvx_common/codec/access_unit_reader.h"

#include "gvx_common/codec/bit_reader.h"
#include "gvx_common/codec/nal_unit.h"
#include "gvx_common/codec/parameter_sets.h"
#include "support/stream_bytes.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using gvx::AccessUnit;
using gvx::AccessUnitReader;
using gvx::Codec;
using gvx::ReadResult;
using gvx::SequenceInfo;
using namespace stream_bytes;

namespace {

struct Picture {
    std::string bytes;
    bool key;
};

// The same pictures come whether the reader keeps its memory or gives it back behind each of them.
std::vector<Picture> Pictures(Codec codec, const std::string& stream) {
    const TempFolder folder;
    std::vector<Picture> pictures[2];
    for (const bool givesBack : {true, false}) {
        AccessUnitReader reader(codec);
        std::string error;
        EXPECT_TRUE(reader.Open(folder.Write("stream", stream), error)) << error;
        AccessUnit unit;
        std::vector<std::uint8_t> memory(10, 1);
        for (reader.UseMemory(memory); reader.Next(unit) == ReadResult::Ok; reader.UseMemory(memory)) {
            pictures[givesBack].push_back({std::string(unit.bytes.begin(), unit.bytes.end()), unit.key});
            if (givesBack) {
                reader.GiveBackMemory(memory);
                EXPECT_FALSE(memory.empty());
            }
        }
        EXPECT_EQ("", reader.Error());
    }
    EXPECT_TRUE(std::equal(pictures[0].begin(), pictures[0].end(), pictures[1].begin(), pictures[1].end(),
                           [](const Picture& a, const Picture& b) { return a.bytes == b.bytes && a.key == b.key; }));
    return pictures[0];
}

}  // namespace

TEST(AccessUnitReader, KeepsTheSlicesOfAPictureTogether) {
    const std::string head = Nal(H264Sps(320, 240)) + Nal(H264Pps());
    const std::string key = Nal(H264Slice(true, true)) + Nal(H264Slice(true, false)) + Nal(H264Slice(true, false));
    const std::string next = Nal(H264Slice(false, true)) + Nal(H264Slice(false, false));
    const auto pictures = Pictures(Codec::H264, head + key + next + next);
    ASSERT_EQ(3u, pictures.size());
    EXPECT_EQ(head + key, pictures[0].bytes);
    EXPECT_TRUE(pictures[0].key);
    EXPECT_EQ(next, pictures[1].bytes);
    EXPECT_FALSE(pictures[1].key);
    EXPECT_EQ(next, pictures[2].bytes);
    // Short start codes become long ones.
    EXPECT_EQ(key, Pictures(Codec::H264, Nal(H264Slice(true, true), false) + Nal(H264Slice(true, false), false) +
                                             Nal(H264Slice(true, false), false))
                       .at(0)
                       .bytes);
    // Empty units between them, and a long run of zeroes, belong to no picture.
    const std::string nothing = std::string(20, '\0') + Nal("") + Nal("") + std::string(20, '\0');
    EXPECT_EQ(next, Pictures(Codec::H264, key + nothing + next + nothing).at(1).bytes);
    EXPECT_TRUE(Pictures(Codec::H264, head).empty());
    EXPECT_TRUE(Pictures(Codec::H264, "").empty());
}

TEST(AccessUnitReader, WhatStandsInFrontOfAPictureBelongsToIt) {
    // Each of these opens the next access unit when it follows a slice: delimiter, parameter sets, SEI, prefix.
    for (const std::string& opener :
         {H264Delimiter(), H264Sps(320, 240), H264Pps(), std::string("\x06\x01\x01\x80"), std::string("\x6E\x40")}) {
        const std::string slice = Nal(H264Slice(false, true));
        const auto pictures = Pictures(Codec::H264, slice + Nal(opener) + slice);
        ASSERT_EQ(2u, pictures.size());
        EXPECT_EQ(slice, pictures[0].bytes);
        EXPECT_EQ(Nal(opener) + slice, pictures[1].bytes);
    }
    // Filler and the end of a sequence belong to the picture before them, data partitions to the slice that they part.
    for (const char* follower : {"\x0C\xFF", "\x0A", "\x03\xFF", "\x04\xFF"}) {
        const std::string slice = Nal(H264Slice(false, true));
        const auto pictures = Pictures(Codec::H264, slice + Nal(follower) + slice);
        ASSERT_EQ(2u, pictures.size());
        EXPECT_EQ(slice + Nal(follower), pictures[0].bytes);
    }
    // Partition A of a first slice begins a picture of its own.
    EXPECT_EQ(2u, Pictures(Codec::H264, Nal(H264Slice(false, true)) + Nal("\x42\xB8\xFF")).size());
}

TEST(AccessUnitReader, H265PicturesAndTheirFollowers) {
    constexpr unsigned kTrailing = 1;
    constexpr unsigned kIdr = 19;
    constexpr unsigned kCra = 21;
    constexpr unsigned kSuffixSei = 40;
    const std::string head = Nal(H265Nal(32)) + Nal(H265Nal(33)) + Nal(H265Nal(34)) + Nal(H265Nal(39));
    const std::string key = Nal(H265Slice(kIdr, true)) + Nal(H265Slice(kIdr, false)) + Nal(H265Nal(kSuffixSei));
    const std::string trailing = Nal(H265Slice(kTrailing, true)) + Nal(H265Slice(kTrailing, false));
    const std::string random = Nal(H265Nal(35)) + Nal(H265Slice(kCra, true));
    const auto pictures = Pictures(Codec::H265, head + key + trailing + random + trailing);
    ASSERT_EQ(4u, pictures.size());
    EXPECT_EQ(head + key, pictures[0].bytes);
    EXPECT_EQ(trailing, pictures[1].bytes);
    EXPECT_EQ(random, pictures[2].bytes);
    EXPECT_EQ((std::vector<bool>{true, false, true, false}),
              (std::vector<bool>{pictures[0].key, pictures[1].key, pictures[2].key, pictures[3].key}));
}

TEST(AccessUnitReader, ParameterSetsGoBehindTheDelimiterAndAPictureHasABound) {
    const TempFolder folder;
    const std::string sets = Nal(H264Sps(320, 240)) + Nal(H264Pps());
    const std::string key = Nal(H264Slice(true, true));
    AccessUnitReader reader(Codec::H264);
    std::string error;
    ASSERT_TRUE(reader.Open(folder.Write("s", sets + key + Nal(H264Delimiter()) + key), error));
    AccessUnit unit;
    ASSERT_EQ(ReadResult::Ok, reader.Next(unit));
    EXPECT_TRUE(unit.hasParameterSets);
    ASSERT_EQ(ReadResult::Ok, reader.Next(unit));
    EXPECT_FALSE(unit.hasParameterSets);
    reader.InsertParameterSets(unit);
    EXPECT_EQ(Nal(H264Delimiter()) + sets + key, std::string(unit.bytes.begin(), unit.bytes.end()));
    AccessUnitReader bound(Codec::H264, 1000);
    ASSERT_TRUE(
        bound.Open(folder.Write("s", Nal(H264Slice(true, true, 600)) + Nal(H264Slice(true, false, 600))), error));
    EXPECT_EQ(ReadResult::Failed, bound.Next(unit));
    EXPECT_EQ("a picture is longer than 1000 bytes", bound.Error());
}

TEST(ParameterSets, ALaterSetReplacesTheOneOfItsIdentifierThoughEquallyLong) {
    gvx::ParameterSets sets(Codec::H264);
    for (const std::string pps : {"\x68\xCE\x38\x80", "\x68\xCE\x3C\x80"}) {
        const auto* data = reinterpret_cast<const std::uint8_t*>(pps.data());
        sets.Keep(gvx::ClassifyNal(Codec::H264, data, pps.size()), {data, pps.size()});
    }
    std::vector<std::uint8_t> bytes;
    sets.AppendTo(bytes);
    EXPECT_EQ(Nal("\x68\xCE\x3C\x80"), std::string(bytes.begin(), bytes.end()));
}

TEST(BitReader, SignedCodesAndEmulationPrevention) {
    // Two zeroes are enough for an escape, and three have one too.
    const std::uint8_t escaped[] = {0, 0, 3, 1, 0, 0, 0, 3, 2};
    gvx::BitReader payload(escaped, sizeof(escaped), 0);
    EXPECT_EQ(0x00000100u, payload.Bits(32));
    EXPECT_EQ(0x000002u, payload.Bits(24));
    EXPECT_TRUE(payload.Ok());

    const std::uint8_t codes[] = {0xA6, 0x42, 0xC0};  // 1, 010, 011, 00100, 00101, and a stop bit
    gvx::BitReader bits(codes, sizeof(codes), 0);
    for (const std::int32_t value : {0, 1, -1, 2, -2}) {
        EXPECT_EQ(value, bits.Se());
    }
}

TEST(SequenceParameterSet, CutOrDamagedSetsAreRefusedWithoutHarm) {
    const std::string sps = H264Sps(1280, 720);
    SequenceInfo whole;
    ASSERT_TRUE(
        ParseSequenceParameterSet(Codec::H264, reinterpret_cast<const std::uint8_t*>(sps.data()), sps.size(), whole));
    EXPECT_EQ(1280u, whole.width);
    EXPECT_EQ(720u, whole.height);
    EXPECT_FALSE(whole.frameRate.Known());
    for (std::size_t length = 0; length < sps.size() - 2; ++length) {
        const std::vector<std::uint8_t> cut(sps.begin(), sps.begin() + static_cast<std::ptrdiff_t>(length));
        SequenceInfo info;
        EXPECT_FALSE(ParseSequenceParameterSet(Codec::H264, cut.data(), cut.size(), info)) << length;
    }
    // Any bytes at all: nothing may be read beyond them, and a set that is taken has a size that a picture can have.
    std::uint32_t state = 1;
    for (unsigned round = 0; round < 20000; ++round) {
        std::vector<std::uint8_t> bytes(round % 64 + 1);
        for (std::uint8_t& byte : bytes) {
            state = state * 1664525u + 1013904223u;
            byte = static_cast<std::uint8_t>(state >> 24);
        }
        for (const Codec codec : {Codec::H264, Codec::H265}) {
            SequenceInfo info;
            if (ParseSequenceParameterSet(codec, bytes.data(), bytes.size(), info)) {
                EXPECT_TRUE(info.width > 0 && info.width <= 16384 && info.height > 0 && info.height <= 32768);
            }
        }
    }
}
