// Any bytes as lines: the exported function and the engine's own reader take the same lines apart and join them alike,
// up to the first line that the function cannot take (a NUL byte, or longer than its buffer).
// First byte: 1 continuation lines are joined.
#include <genreg/GenRegText.h>
#include <genreg/LineUtilities.h>

#include <cstring>

#include "Fuzz.h"
#include "genreg/text/Lines.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const FuzzFolder folder;
    if (size == 0) {
        return 0;
    }
    const bool joined = (bytes[0] & 1) != 0;
    const std::string content(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    std::FILE* const stream = std::fopen(folder.write("lines", content).c_str(), "rb");
    GenRegText engine;
    if (joined) {
        (void)engine.setFeature(REG_FEATURE_LINE_CONTINUATION);
    }
    genreg::FunctionTrace trace{genreg::Function::TextGet};
    genreg::TextLines lines{engine, trace};
    genreg::Input input{::fileno(stream), 0, content.size()};
    std::string seen;
    bool comparable = true;
    for (genreg::TextLine line = {}; lines.next(input, &line);) {
        seen.append(line.raw, line.length);
        comparable = comparable && !line.tooLong() && std::memchr(line.raw, '\0', line.length) == nullptr;
        if (!comparable) {
            continue;
        }
        char raw[REG_LINE_SIZE];
        char text[REG_LINE_SIZE];
        unsigned int rc = 0;
        claim(GenRegReadLine(raw, text, sizeof raw, stream, &rc, joined) == raw, "the function sees the line too");
        claim(std::string(raw) == std::string(line.raw, line.length), "both see the same bytes");
        claim(std::strcmp(text, lines.text(line)) == 0, "both join them alike");
    }
    claim(seen == content, "the lines are the file");
    if (comparable) {
        char raw[REG_LINE_SIZE];
        char text[REG_LINE_SIZE];
        unsigned int rc = 0;
        claim(GenRegReadLine(raw, text, sizeof raw, stream, &rc, joined) == nullptr && rc == REG_END_OF_INPUT,
              "both are at the end");
    }
    (void)std::fclose(stream);
    return 0;
}
