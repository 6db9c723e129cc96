#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

// Runs a fuzzer over the inputs that are kept for it, with any compiler: fuzz_replay FOLDER. A file is one input; a file
// "*.inputs" holds many small ones, each behind a line "-- input --".

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr std::string_view kSeparator = "-- input --\n";

void Run(std::string_view input) {
    // A block of just that size, so that a sanitizer sees the first byte beyond it.
    const auto exact = std::make_unique<std::uint8_t[]>(input.size());
    std::copy(input.begin(), input.end(), exact.get());
    LLVMFuzzerTestOneInput(exact.get(), input.size());
}

// The number of inputs in the file.
int Replay(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string content((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    if (file.extension() != ".inputs") {
        Run(content);
        return 1;
    }
    int inputs = 0;
    std::string_view rest = content;
    while (rest.substr(0, kSeparator.size()) == kSeparator) {
        rest.remove_prefix(kSeparator.size());
        const std::string_view input = rest.substr(0, rest.find(kSeparator));
        Run(input);
        rest.remove_prefix(input.size());
        ++inputs;
    }
    return inputs;
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
            inputs += Replay(entry.path());
        }
    }
    std::printf("%d inputs replayed\n", inputs);
    return inputs == 0 ? 1 : 0;
}
