#include "base/Failure.h"

#include <fmt/core.h>
#include <genreg/genreg.h>
#include <osse/Errors.h>
#include <osse/Log.h>

#include <cerrno>

#include "base/CodeClasses.h"
#include "base/LockPatience.h"
#include "base/PlaceAdvice.h"
#include "base/Text.h"

namespace tool {
namespace {

// A sentence of the code table as a clause: "could not be opened" rather than "Could not be opened."
std::string clause(unsigned int code) {
    int systemError = 0;
    if (isSystemError(code, &systemError)) {
        return systemWords(systemError);
    }
    std::string text = genregCodeText(code);
    if (!text.empty() && text.back() == '.') {
        text.pop_back();
    }
    if (text.size() > 1 && text[0] >= 'A' && text[0] <= 'Z' && ((text[1] >= 'a' && text[1] <= 'z') || text[1] == ' ')) {
        text[0] = static_cast<char>(text[0] - 'A' + 'a');
    }
    return text;
}

std::string detailOf(unsigned int code, const GenRegCause& cause) {
    std::string text = fmt::format("{:#010x} {}", code, genregCodeName(code));
    if (cause.code == 0) {
        return text;
    }
    text += fmt::format("; first failure {:#010x} {} in {}, probe {}", cause.code, genregCodeName(cause.code),
                        ecfGetFunctionName(cause.function), cause.probe);
    return cause.platformCode == 0 ? text : text + fmt::format(", system code {:#010x}", cause.platformCode);
}

}  // namespace

Failure usageFailure(std::string message, std::string hint) {
    Failure failure;
    failure.kind = "usage";
    failure.exitStatus = EXIT_USAGE;
    failure.message = std::move(message);
    failure.hint = std::move(hint);
    return failure;
}

Failure libraryFailure(unsigned int code, std::string path, const std::string& doing) {
    GenRegCause cause{};
    genregLastCause(&cause);
    // A negative answer is its own cause; only codes that stand for a step inside ask further.
    const bool inner = classOf(code).wrapper && cause.code != 0;
    const unsigned int deciding = inner ? cause.code : code;
    const CodeClass* meaning = &classOf(deciding);
    std::string why = clause(deciding);

    const unsigned int platformCode = cause.platformCode != 0 && (inner || cause.code == code) ? cause.platformCode : 0;
    int systemError = 0;
    const bool known = isSystemError(platformCode != 0 ? platformCode : deciding, &systemError);
    if (known && platformCode != 0 && platformCode != deciding) {
        why += ": " + systemWords(systemError);
    }
    if (platformCode == OSS_WOULD_BLOCK) {
        meaning = &classOf(OSS_WOULD_BLOCK);
    }
    if (known && systemError == ENOENT && meaning->exitStatus == EXIT_UNREADABLE) {
        meaning = &classOf(REG_MISSING);
    }
    if (const std::string_view after = fileAfter(deciding); !after.empty()) {
        why += fmt::format("; {}", after);
    }

    Failure failure;
    failure.kind = meaning->kind;
    failure.exitStatus = meaning->exitStatus;
    failure.code = code;
    failure.message = fmt::format("{}: cannot {}: {}", printable(path), doing, why);
    failure.hint = placeAdvice(deciding, known ? systemError : 0, path);
    if (failure.hint.empty() && known) {
        failure.hint = systemAdvice(systemError);
    }
    if (failure.hint.empty()) {
        failure.hint = meaning->advice;
    }
    failure.detail = detailOf(code, cause);
    failure.path = std::move(path);
    if (failure.exitStatus == EXIT_LOCKED) {
        tellHolder(failure, cause.code == REG_LOCK_FILE_FAILED);
    }
    return failure;
}

Failure systemFailure(int systemError, std::string path, const std::string& doing) {
    const unsigned int code = ossErrorMapSystem(systemError);
    Failure failure;
    failure.kind = systemError == ENOENT ? "missing" : classOf(code).kind;
    failure.exitStatus = classOf(code).exitStatus;
    failure.code = code;
    failure.message = fmt::format("{}: cannot {}: {}", printable(path), doing, systemWords(systemError));
    failure.hint = systemAdvice(systemError);
    failure.path = std::move(path);
    return failure;
}

}  // namespace tool
