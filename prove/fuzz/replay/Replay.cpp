// Runs a fuzz target over the files of a corpus folder, one after the other, without libFuzzer. A corpus that is not
// there or holds no file is a failure: nothing would have been tried.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

int main(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "usage: %s CORPUS_FOLDER\n", arguments[0]);
        return 2;
    }
    std::error_code error;
    int replayed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(arguments[1], error)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        const std::vector<std::uint8_t> bytes(text.begin(), text.end());
        // Said before it runs: the last name printed is the input that stopped the run.
        std::printf("%s\n", entry.path().filename().c_str());
        std::fflush(stdout);
        // An input without a byte has a place all the same, as libFuzzer's has.
        const std::uint8_t nothing = 0;
        (void)LLVMFuzzerTestOneInput(bytes.empty() ? &nothing : bytes.data(), bytes.size());
        ++replayed;
    }
    std::printf("%d inputs replayed\n", replayed);
    return replayed == 0 ? 1 : 0;
}
