#include "Layout.h"

#include <genreg/RegistryBytes.h>

#include <cstring>
#include <fstream>
#include <iterator>

namespace {

// Frames in the machine's order, and nothing that a checksum header begins with.
bool isPlain(const char (&front)[REG_FRAME_LENGTH_SIZE]) {
    unsigned int length = 0;
    std::memcpy(&length, front, sizeof length);
    const bool digit = front[0] >= '0' && front[0] <= '9';
    return length >= REG_MIN_RECORD_SIZE && length <= REG_MAX_RECORD_SIZE && !digit && front[0] != '-';
}

}  // namespace

unsigned long layoutFeatures(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    char front[REG_FRAME_LENGTH_SIZE];
    if (!stream.read(front, sizeof front) || isPlain(front)) {
        return 0;
    }
    stream.seekg(0);
    const std::string bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    GenRegLayout layout = {};
    (void)genregReadLayout(bytes.data(), bytes.size(), &layout);
    return layout.features;
}
