// Replays a fuzz target's checked-in corpus without libFuzzer: each file is
// handed to the target's entry point once, so that an input that once broke
// something fails the ordinary test suite when it breaks it again.
//   replay_<target> FILE_OR_DIR...
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    std::vector<std::filesystem::path> vecFiles;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::directory_iterator(path))
                if (entry.is_regular_file())
                    vecFiles.push_back(entry.path());
        } else {
            vecFiles.push_back(path);
        }
    }
    std::sort(vecFiles.begin(), vecFiles.end());
    if (vecFiles.empty()) {
        std::fprintf(stderr, "replay: no inputs\n");
        return 1;
    }
    for (const auto& file : vecFiles) {
        std::ifstream in(file, std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "replay: cannot read %s\n", file.c_str());
            return 1;
        }
        const std::vector<char> vecData((std::istreambuf_iterator<char>(in)),
                                        std::istreambuf_iterator<char>());
        // Named first, so that a crash shows which input did it.
        std::fprintf(stderr, "replay: %s\n", file.c_str());
        (void)LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(vecData.data()),
                                     vecData.size());
    }
    std::fprintf(stderr, "replay: %zu inputs, all passed\n", vecFiles.size());
    return 0;
}
