// A target without its fuzzer: every file that is named, and every file in a folder that is named, is one input.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

// Sorted, so that a failure comes at the same place every time.
std::vector<fs::path> files_at(const fs::path& place) {
    if (!fs::is_directory(place)) return {place};
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(place)) {
        if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

// In memory of exactly its size, so that one byte too far is noticed.
std::vector<std::uint8_t> content_of(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    return {bytes.begin(), bytes.end()};
}

}  // namespace

int main(int argc, char** argv) {
    std::size_t inputs = 0;
    for (int i = 1; i < argc; ++i) {
        for (const fs::path& file : files_at(argv[i])) {
            std::printf("%s\n", file.c_str());
            std::fflush(stdout);  // the last name before a crash is the input that did it
            const std::vector<std::uint8_t> input = content_of(file);
            LLVMFuzzerTestOneInput(input.data(), input.size());
            ++inputs;
        }
    }
    if (inputs == 0) std::fprintf(stderr, "no inputs\n");
    return inputs == 0 ? 1 : 0;
}
