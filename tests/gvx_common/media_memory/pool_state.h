#pragma once

#include "gvx_common/media_memory/MediaMemPool.h"
#include "support/recording_logger.h"

#include <array>
#include <string>

// What a pool tells of itself.
struct PoolState {
    unsigned int used = 0;
    unsigned int level = 0;
    std::array<unsigned int, MediaMemPool::kLevels> out{};
    std::array<bool, MediaMemPool::kLevels> open{};

    unsigned int OutOfAllLevels() const {
        unsigned int sum = 0;
        for (const unsigned int count : out) {
            sum += count;
        }
        return sum;
    }
};

inline PoolState StateOf(MediaMemPool& pool) {
    PoolState state;
    const ScopedRecordingLogger log;
    pool.ShowDebugInfo();
    for (const RecordingLogger::Line& line : log->Find("", "MediaMemPool MEDIABUF STATUS")) {
        unsigned int level = 0;
        unsigned int out = 0;
        char memory[32] = "";
        if (std::sscanf(line.text.c_str(), "i:[%u %31s %*s %*s %u]", &level, memory, &out) == 3) {
            state.out.at(level) = out;
            state.open.at(level) = std::string(memory) != "(nil)";
        } else {
            std::sscanf(line.text.c_str(), "m_usedPacketSize:%u,m_level:%u", &state.used, &state.level);
        }
    }
    return state;
}
