#include "base/ValueSource.h"

#include <fmt/core.h>
#include <genreg/Codes.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "base/Answers.h"
#include "base/Text.h"

namespace tool {
namespace {

// More than any registry has room for in a value.
constexpr std::size_t MOST_BYTES = 65536;

}  // namespace

std::string valueFrom(const std::string& file) {
    const bool standardInput = file == "-";
    // A pipe is as good as a file here: <(command).
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> opened(
        standardInput ? nullptr : std::fopen(file.c_str(), "re"),
        [](std::FILE* stream) { return std::fclose(stream); });
    std::FILE* const stream = standardInput ? stdin : opened.get();
    if (stream == nullptr) {
        throw systemFailure(errno, file, "take the value from it");
    }
    std::string text(MOST_BYTES + 1, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), stream));
    if (std::ferror(stream) != 0) {
        throw systemFailure(errno, standardInput ? "standard input" : file, "take the value from it");
    }
    if (text.size() > MOST_BYTES) {
        throw answer("invalid", EXIT_INVALID, REG_RECORD_REFUSED, file,
                     fmt::format("it is longer than {} bytes, which no value is", MOST_BYTES), "name another file");
    }
    if (text.empty()) {  // the command that was to write it has failed, more likely than not
        throw answer("invalid", EXIT_INVALID, REG_RECORD_REFUSED, file, "it holds nothing to take a value from",
                     "an empty value is an empty line");
    }
    if (text.ends_with('\n')) {
        text.pop_back();
    }
    return text;
}

}  // namespace tool
