#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

// Runs a fuzzer over the inputs that are kept for it, with any compiler: fuzz_replay FOLDER.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void Replay(const std::filesystem::path& file) {
    std::ifstream input(file, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
    // A block of just that size, so that a sanitizer sees the first byte beyond it.
    const auto exact = std::make_unique<std::uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), exact.get());
    LLVMFuzzerTestOneInput(exact.get(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || !std::filesystem::is_directory(argv[1])) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    int inputs = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[1])) {
        if (entry.is_regular_file()) {
            Replay(entry.path());
            ++inputs;
        }
    }
    std::printf("%d inputs replayed\n", inputs);
    return inputs == 0 ? 1 : 0;
}
