// Runs a fuzz target over files, as libFuzzer does over its corpus, for builds
// without libFuzzer: every argument is a file or a directory of files (read in name
// order), each handed once to LLVMFuzzerTestOneInput. A crash or a sanitizer report
// fails the run; so does an argument that cannot be read.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
    std::vector<std::filesystem::path> inputs;
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        if (std::filesystem::is_directory(argv[i], error)) {
            for (const auto& entry : std::filesystem::directory_iterator(argv[i], error))
                if (entry.is_regular_file()) inputs.push_back(entry.path());
        } else {
            inputs.emplace_back(argv[i]);
        }
        if (error) {
            std::fprintf(stderr, "replay: cannot read %s: %s\n", argv[i], error.message().c_str());
            return 1;
        }
    }
    std::sort(inputs.begin(), inputs.end());
    for (const auto& path : inputs) {
        std::ifstream file(path, std::ios::binary);
        if (!file) {
            std::fprintf(stderr, "replay: cannot open %s\n", path.c_str());
            return 1;
        }
        const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("replay: %zu inputs ran\n", inputs.size());
    return 0;
}
