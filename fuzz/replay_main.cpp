// Replays inputs through a fuzz target without libFuzzer: every regular file under each
// directory given (or each file given), in name order. A missing directory is skipped (a
// target may have no regression inputs yet). Exits non-zero when no input was found at all;
// a failing input aborts with the check's reason and the file's path.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "FuzzCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        const fs::path arg(argv[i]);
        std::error_code ec;
        if (fs::is_regular_file(arg, ec)) {
            files.push_back(arg);
        } else if (fs::is_directory(arg, ec)) {
            for (const auto& entry : fs::recursive_directory_iterator(arg, ec))
                if (entry.is_regular_file()) files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    for (const auto& path : files) {
        std::ifstream in(path, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
        const std::string name = path.string();
        pelora_fuzz::currentInput = name.c_str();
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    pelora_fuzz::currentInput = nullptr;
    std::printf("replayed %zu inputs\n", files.size());
    return files.empty() ? 1 : 0;
}
