#pragma once

#include <thread>
#include <vector>

// Does work(number) for 0 to count - 1 at the same time, each on a thread of its own, and waits for all of them.
template <typename Count, typename Work>
void RunThreads(Count count, const Work& work) {
    std::vector<std::thread> threads;
    for (Count number = 0; number < count; ++number) {
        threads.emplace_back([&work, number] { work(number); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}
