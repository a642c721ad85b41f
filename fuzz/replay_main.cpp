// Replays inputs through a fuzz target without the fuzzing engine, so that
// every ordinary build runs the kept corpora: each argument is a file or a
// folder whose files (in name order, not recursively) are fed to
// LLVMFuzzerTestOneInput one at a time. A path that does not exist fails the
// run, so that a misnamed corpus cannot pass unnoticed.
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

namespace {

namespace fs = std::filesystem;

void replayFile(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    // An empty input still gets a valid pointer, as the engine gives it.
    static const uint8_t kNothing = 0;
    const auto* data = bytes.empty() ? &kNothing : reinterpret_cast<const uint8_t*>(bytes.data());
    LLVMFuzzerTestOneInput(data, bytes.size());
}

std::vector<fs::path> inputsOf(const fs::path& path) {
    if (!fs::is_directory(path)) return {path};
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(path))
        if (entry.is_regular_file()) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

int main(int argc, char** argv) {
    size_t replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const fs::path path = argv[i];
        if (!fs::exists(path)) {
            std::fprintf(stderr, "no such file or folder: %s\n", argv[i]);
            return 1;
        }
        const std::vector<fs::path> inputs = inputsOf(path);
        for (const fs::path& input : inputs) replayFile(input);
        std::printf("replayed %zu inputs from %s\n", inputs.size(), argv[i]);
        replayed += inputs.size();
    }
    std::printf("replayed %zu inputs in all\n", replayed);
    return replayed > 0 ? 0 : 1;
}
