// Adding, changing and deleting lines.
#include <osse/Errors.h>
#include <osse/Files.h>

#include <cerrno>
#include <cstring>

#include "genreg/core/Append.h"
#include "genreg/core/Transaction.h"
#include "genreg/text/Lines.h"
#include "platform/posix/Posix.h"

using genreg::EVERY_FIELD;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::OperationTrace;
using genreg::RecordBuffer;
using genreg::TextLine;
using genreg::UpdatePlan;

namespace {

constexpr const char* TAG = "GenRegText";

// What the three updates share: the operation's arguments and the writing of lines.
class TextUpdate : public genreg::UpdateSteps {
public:
    TextUpdate(GenRegText& engine, FunctionTrace& trace, unsigned long operation, unsigned long mask, void* record,
               void* key, void* work) noexcept
        : engine_(engine),
          trace_(trace),
          lines_(engine, trace),
          operation_(operation),
          mask_(mask),
          record_(record),
          key_(key),
          work_(work) {}

    unsigned int verify() noexcept override { return engine_.Verify(operation_, mask_, record_, key_); }

protected:
    ~TextUpdate() = default;

    [[nodiscard]] bool duplicatesAllowed() const noexcept { return lines_.has(REG_FEATURE_ALLOW_DUPLICATES); }

    // Whether the line matches the key; a line that is refused or too long does not.
    [[nodiscard]] bool matches(const TextLine& line, void* key) noexcept {
        return lines_.mayMatch(mask_, line, key) && lines_.parse(work_, line) && lines_.match(mask_, work_, key) == 1;
    }

    [[nodiscard]] unsigned int write(const void* bytes, std::size_t length, unsigned long* closeMode) noexcept {
        if (posix::writeUnlocked(lines_.copy(), bytes, length)) {
            return 0;
        }
        *closeMode = REG_OP_READ;
        return trace_.fail(145, REG_COPY_WRITE_FAILED, ossErrorMapSystem(errno));
    }

    // The line, and a newline behind it when it has none.
    [[nodiscard]] unsigned int writeEnded(const TextLine& line, unsigned long* closeMode) noexcept {
        const unsigned int rc = write(line.raw, line.length, closeMode);
        return rc != 0 || line.endsInNewline() ? rc : write("\n", 1, closeMode);
    }

    [[nodiscard]] unsigned int abandon(unsigned int rc, unsigned long* closeMode) noexcept {
        *closeMode = REG_OP_READ;
        return rc;
    }

    [[nodiscard]] unsigned int readError(const GenRegInput& input, unsigned long* closeMode) noexcept {
        return input.error() == 0 ? 0 : abandon(trace_.fail(115, REG_READ_FAILED, input.error()), closeMode);
    }

    GenRegText& engine_;
    FunctionTrace& trace_;
    GenRegTextLines lines_;
    unsigned long operation_;
    unsigned long mask_;
    void* record_;
    void* key_;
    void* work_;
};

class TextDelete final : public TextUpdate {
public:
    using TextUpdate::TextUpdate;

    unsigned int copy(unsigned long* closeMode) noexcept override {
        GenRegInput input{-1, 0, 0};
        GenRegTransaction::readRegistry(engine_, input);
        unsigned long removed = 0;
        TextLine line = {};
        while (lines_.next(input, &line)) {
            if (const unsigned int rc = lines_.checkSearchSlots(true)) {
                return abandon(rc, closeMode);
            }
            if (!matches(line, key_)) {
                if (const unsigned int rc = write(line.raw, line.length, closeMode)) {
                    return rc;
                }
            } else if (removed > 0 && !duplicatesAllowed()) {
                return abandon(trace_.fail(120, REG_SEVERAL_MATCH), closeMode);
            } else {
                ++removed;
            }
        }
        if (const unsigned int rc = readError(input, closeMode)) {
            return rc;
        }
        return removed > 0 ? 0 : abandon(trace_.failMildly(150, REG_NOT_FOUND), closeMode);
    }
};

class TextChange final : public TextUpdate {
public:
    using TextUpdate::TextUpdate;

    unsigned int copy(unsigned long* closeMode) noexcept override {
        GenRegInput input{-1, 0, 0};
        GenRegTransaction::readRegistry(engine_, input);
        genreg::FirstError result;
        TextLine line = {};
        while (lines_.next(input, &line)) {
            if (const unsigned int rc = lines_.checkSearchSlots(true)) {
                return abandon(rc, closeMode);
            }
            if (!matches(line, key_)) {
                if (const unsigned int rc = writeEnded(line, closeMode)) {
                    return rc;
                }
            } else if (lines_.match(EVERY_FIELD, work_, record_) != 0) {
                result.note(REG_UNCHANGED);
                if (const unsigned int rc = writeEnded(line, closeMode)) {
                    return rc;
                }
            } else if (const unsigned int rc = replace(line, closeMode)) {
                return rc;
            }
        }
        if (const unsigned int rc = readError(input, closeMode)) {
            return rc;
        }
        if (result.none() && replaced_ == 0) {
            return abandon(trace_.failMildly(150, REG_NOT_FOUND), closeMode);
        }
        return result.none() ? 0 : trace_.failMildly(155, result.code());
    }

private:
    [[nodiscard]] unsigned int replace(const TextLine& line, unsigned long* closeMode) noexcept {
        if (replaced_ > 0 && !duplicatesAllowed()) {
            return abandon(trace_.fail(120, REG_SEVERAL_MATCH), closeMode);
        }
        char* const text = lines_.text(line);
        if (const unsigned int rc = lines_.format(record_, text)) {
            return abandon(rc, closeMode);
        }
        ++replaced_;
        return lines_.keepsLines() ? writeKept(line, lines_.patch(line, text), closeMode)
                                   : writeEnded({text, ::strnlen(text, REG_LINE_SIZE)}, closeMode);
    }

    [[nodiscard]] unsigned int writeKept(const TextLine& line, const genreg::LinePatch& patch,
                                         unsigned long* closeMode) noexcept {
        const TextLine tail = {line.raw + patch.tail, line.length - patch.tail};
        const std::size_t ended = tail.endsInNewline() ? 0 : 1;
        if (patch.front + patch.pieceLength + tail.length + ended >= REG_LINE_SIZE) {
            (void)trace_.fail(142, REG_LINE_TOO_LONG);
            return abandon(trace_.fail(143, REG_FORMAT_FAILED), closeMode);
        }
        unsigned int rc = write(line.raw, patch.front, closeMode);
        rc = rc != 0 ? rc : write(patch.piece, patch.pieceLength, closeMode);
        return rc != 0 ? rc : writeEnded(tail, closeMode);
    }

    unsigned long replaced_ = 0;
};

class TextAdd final : public TextUpdate {
public:
    using TextUpdate::TextUpdate;

    unsigned int copy(unsigned long* closeMode) noexcept override {
        OSSFileInfo info = {};
        if (const unsigned int rc = ossFileGetInfoV9(lines_.registryPath(), &info)) {
            return abandon(trace_.fail(90, REG_FILE_SIZE_FAILED, rc), closeMode);
        }
        const bool inPlace = GenRegTransaction::addsInPlace(engine_);
        if (info.size > 0 && !inPlace) {
            if (const unsigned int rc = copyLines(closeMode)) {
                return rc;
            }
        }
        std::FILE* const target = inPlace ? lines_.registry() : lines_.copy();
        if (!posix::flushStream(target)) {  // which the seek would do, and blame itself
            return abandon(trace_.fail(132, REG_COPY_WRITE_FAILED, ossErrorMapSystem(errno)), closeMode);
        }
        if (std::fseek(target, 0, SEEK_END) != 0) {
            // Kept: closes as a completed add would.
            return trace_.fail(135, REG_SEEK_END_FAILED, ossErrorMapSystem(errno));
        }
        char text[REG_LINE_SIZE + 1] = {};
        if (const unsigned int rc = lines_.format(record_, text)) {
            return abandon(rc, closeMode);
        }
        std::size_t length = ::strnlen(text, REG_LINE_SIZE);
        if (std::memchr(text, '\n', length) == nullptr) {
            text[length++] = '\n';
        }
        const bool written = inPlace
                                 ? genreg::appendLine(target, text, length, lines_.has(REG_FEATURE_LINE_CONTINUATION))
                                 : posix::writeUnlocked(target, text, length);
        return written ? 0 : abandon(trace_.fail(165, REG_RECORD_WRITE_FAILED, ossErrorMapSystem(errno)), closeMode);
    }

private:
    // Copies every line, refusing the add when one of them matches.
    [[nodiscard]] unsigned int copyLines(unsigned long* closeMode) noexcept {
        GenRegInput input{-1, 0, 0};
        GenRegTransaction::readRegistry(engine_, input);
        const bool joined = lines_.has(REG_FEATURE_LINE_CONTINUATION);
        bool goesOn = false;
        TextLine line = {};
        while (lines_.next(input, &line)) {
            goesOn = joined && line.endsInBackslash();
            // Parsed whether or not it matters: a line that is refused is logged.
            const bool parsed = lines_.mayMatch(mask_, line, record_) && lines_.parse(work_, line);
            if (parsed && !duplicatesAllowed() && lines_.match(mask_, work_, record_) == 1) {
                trace_.errorText(125, "Match found; duplicate record");
                return abandon(trace_.fail(120, REG_DUPLICATE), closeMode);
            }
            if (!line.endsInNewline() && line.length > REG_LINE_SIZE) {
                // Kept: closes as a completed add would; the raw copy makes what then commits the old content.
                const unsigned int rc = write(line.raw, line.length, closeMode);
                return rc != 0 ? rc : trace_.fail(128, REG_BUFFER_TOO_SMALL);
            }
            if (const unsigned int rc = writeEnded(line, closeMode)) {
                return rc;
            }
        }
        if (const unsigned int rc = readError(input, closeMode)) {
            return rc;
        }
        // A file that ends in a continuation would take the new line in.
        return goesOn ? write("\n", 1, closeMode) : 0;
    }
};

template <typename Update>
unsigned int runUpdate(GenRegText& engine, FunctionTrace& trace, unsigned long operation, unsigned long mask,
                       void* record, void* key) noexcept {
    RecordBuffer work{TAG};
    unsigned long size = 0;
    void* const validated = record != nullptr || operation != REG_OP_DELETE ? record : key;
    if (const unsigned int rc = GenRegTransaction::prepare(engine, trace, mask, validated, work, &size)) {
        return rc;
    }
    Update steps{engine, trace, operation, mask, record, key, work.get()};
    // Kept: a refused add leaves its copy, which the next update sets aside.
    const UpdatePlan plan = {operation, operation != REG_OP_ADD, false, nullptr, nullptr};
    return GenRegTransaction::update(engine, trace, plan, steps, work);
}

}  // namespace

unsigned int GenRegText::Add(unsigned long mask, void* record) noexcept {
    OperationTrace trace{Function::TextAdd};
    if (const unsigned int rc = CheckFuncPtrs()) {
        return trace.fail(5, REG_CALLBACK_MISSING, rc);
    }
    return runUpdate<TextAdd>(*this, trace, REG_OP_ADD, mask, record, nullptr);
}

unsigned int GenRegText::Change(unsigned long mask, void* key, void* record) noexcept {
    OperationTrace trace{Function::TextChange};
    return runUpdate<TextChange>(*this, trace, REG_OP_CHANGE, mask, record, key);
}

unsigned int GenRegText::Delete(unsigned long mask, void* key) noexcept {
    OperationTrace trace{Function::TextDelete};
    return runUpdate<TextDelete>(*this, trace, REG_OP_DELETE, mask, nullptr, key);
}
