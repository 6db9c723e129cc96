#include "gvx_common/rtp/start_code.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

namespace {

TEST(StartCode, TheFastSearchFindsWhatAPlainOneFinds) {
    std::mt19937 random(7);
    for (int round = 0; round < 20000; ++round) {
        const std::size_t size = random() % 700;
        const std::unique_ptr<unsigned char[]> bytes(new unsigned char[size + 1]);
        const bool manyZeros = round % 2 == 0;
        for (std::size_t i = 0; i < size; ++i) {
            bytes[i] = static_cast<unsigned char>(manyZeros && random() % 8 != 0 ? random() % 2 : 1 + random() % 255);
        }
        if (size >= 4 && round % 4 == 1) {
            const std::size_t at = random() % (size - 3);
            bytes[at] = bytes[at + 1] = bytes[at + 2] = 0;
            bytes[at + 3] = 1;
        }
        const unsigned char* const begin = bytes.get() + (size != 0 ? random() % 2 : 0);
        const unsigned char* const end = bytes.get() + size;
        const unsigned char code[] = {0, 0, 0, 1};
        ASSERT_EQ(gvx::FindStartCode(begin, end), std::search(begin, end, code, code + 4)) << "size " << size;
    }
}

}  // namespace
