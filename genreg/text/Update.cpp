// Adding, changing and deleting lines.
#include <osse/Errors.h>

#include <cerrno>
#include <cstring>

#include "genreg/core/Append.h"
#include "genreg/core/UpdateWalk.h"
#include "genreg/text/Lines.h"
#include "platform/posix/Posix.h"

using genreg::FileInternals;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::Input;
using genreg::OperationTrace;
using genreg::Place;
using genreg::RecordBuffer;
using genreg::TEXT_TAG;
using genreg::TextLine;
using genreg::TextLines;
using genreg::UpdateCall;
using genreg::UpdatePlan;

namespace {

// What the three updates share: the walk over the lines and the writing of lines.
class TextUpdate : public genreg::UpdateSteps {
public:
    TextUpdate(GenRegText& engine, FunctionTrace& trace, const UpdateCall& call, RecordBuffer& work) noexcept
        : engine_(engine), trace_(trace), lines_(engine, trace), call_(call), work_(work) {}

    unsigned int verify() noexcept override {
        return engine_.Verify(call_.operation, call_.mask, call_.record, call_.key);
    }

    bool identityOf(unsigned long mask, const void* key, unsigned int* identity) noexcept override {
        return lines_.identify(mask, key, identity);
    }
    Place nextPlace(Input& input, unsigned int* identity) noexcept override {
        return lines_.nextPlace(input, identity);
    }
    bool isOpenEnded(const genreg::Contents::Part& last) const noexcept override {
        const TextLine line = {last.bytes, last.length};
        const bool goesOn = lines_.has(REG_FEATURE_LINE_CONTINUATION) && line.endsInBackslash();
        return last.length > 0 && (!line.endsInNewline() || goesOn);
    }

protected:
    ~TextUpdate() = default;

    // The line's record matches; work_ holds it.
    [[nodiscard]] virtual unsigned int takeMatch(const TextLine& line) noexcept = 0;
    // The line goes to the copy as it stands, and gains a newline when it has none.
    [[nodiscard]] virtual unsigned int carry(const TextLine& line) noexcept { return writeEnded(line); }

    [[nodiscard]] unsigned int match(unsigned long mask, void* record, void* key) const noexcept {
        return lines_.match(mask, record, key);
    }
    [[nodiscard]] bool duplicatesAllowed() const noexcept { return lines_.has(REG_FEATURE_ALLOW_DUPLICATES); }

    // Carries every line to the copy but those that match the key; one that is refused or too long does not.
    // matching: whether any may. Parsed whether or not it matters: a line that is refused is logged.
    [[nodiscard]] unsigned int walk(void* key, bool matching) noexcept {
        Input& input = FileInternals::of(engine_).input();
        for (TextLine line = {};;) {
            if (const unsigned int rc = carryAtHand(input, key)) {
                return rc;
            }
            if (!lines_.next(input, &line)) {
                return input.error() == 0 ? 0 : trace_.fail(115, REG_READ_FAILED, input.error());
            }
            if (const unsigned int rc = lines_.checkSearchSlots(true)) {
                return rc;
            }
            const bool parsed = lines_.mayMatch(call_.mask, line, key) && lines_.parse(work_.get(), line);
            const bool matches = parsed && matching && match(call_.mask, work_.get(), key) == 1;
            if (const unsigned int rc = matches ? takeMatch(line) : carry(line)) {
                return rc;
            }
        }
    }

    // Many whole lines in one go, where the schema can tell of them that each would be carried; none of them is
    // continued.
    [[nodiscard]] unsigned int carryAtHand(Input& input, const void* key) noexcept {
        const std::size_t length = lines_.passedAtHand(input, call_.mask, key);
        const unsigned int rc = length == 0 ? 0 : write(input.data(), length);
        input.consume(length);
        return rc;
    }

    [[nodiscard]] unsigned int write(const void* bytes, std::size_t length) noexcept {
        return lines_.copy().write(bytes, length) ? 0
                                                  : trace_.fail(145, REG_COPY_WRITE_FAILED, ossErrorMapSystem(errno));
    }

    [[nodiscard]] unsigned int writeEnded(const TextLine& line) noexcept {
        const unsigned int rc = write(line.raw, line.length);
        return rc != 0 || line.endsInNewline() ? rc : write("\n", 1);
    }

    GenRegText& engine_;
    FunctionTrace& trace_;
    TextLines lines_;
    UpdateCall call_;
    RecordBuffer& work_;
};

class TextAdd final : public TextUpdate {
public:
    using TextUpdate::TextUpdate;

    unsigned int copy() noexcept override {
        unsigned long size = 0;
        if (const unsigned int rc = FileInternals::of(engine_).sizeOfRegistry(&size)) {
            return trace_.fail(90, REG_FILE_SIZE_FAILED, rc);
        }
        const bool inPlace = FileInternals::of(engine_).addsInPlace();
        if (size > 0 && !inPlace) {
            if (const unsigned int rc = walk(call_.record, !duplicatesAllowed())) {
                return rc;
            }
            // A file that ends in a continuation would take the new line in.
            if (const unsigned int rc = goesOn_ ? write("\n", 1) : 0) {
                return rc;
            }
        }
        if (!inPlace && !lines_.copy().flush()) {  // what is written there is the old contents, and not the new line
            return trace_.fail(132, REG_COPY_WRITE_FAILED, ossErrorMapSystem(errno));
        }
        if (inPlace && std::fseek(lines_.registry(), 0, SEEK_END) != 0) {
            return trace_.fail(135, REG_SEEK_END_FAILED, ossErrorMapSystem(errno));
        }
        return writeRecord(inPlace);
    }

    // Kept: these two close as a completed add would. Of a long last line that is refused the raw copy makes what then
    // commits the old content.
    [[nodiscard]] bool completes(unsigned int result) const noexcept override {
        return result == REG_SEEK_END_FAILED || result == REG_BUFFER_TOO_SMALL || TextUpdate::completes(result);
    }

private:
    unsigned int takeMatch(const TextLine& /*line*/) noexcept override {
        trace_.errorText(125, "Match found; duplicate record");
        return trace_.fail(120, REG_DUPLICATE);
    }

    unsigned int carry(const TextLine& line) noexcept override {
        goesOn_ = lines_.has(REG_FEATURE_LINE_CONTINUATION) && line.endsInBackslash();
        if (line.endsInNewline() || line.length <= REG_LINE_SIZE) {
            return writeEnded(line);
        }
        const unsigned int rc = write(line.raw, line.length);
        return rc != 0 ? rc : trace_.fail(128, REG_BUFFER_TOO_SMALL);
    }

    [[nodiscard]] unsigned int writeRecord(bool inPlace) noexcept {
        char text[REG_LINE_SIZE + 1] = {};
        if (const unsigned int rc = lines_.format(call_.record, text)) {
            return rc;
        }
        std::size_t length = ::strnlen(text, REG_LINE_SIZE);
        if (std::memchr(text, '\n', length) == nullptr) {
            text[length++] = '\n';
        }
        const bool joined = lines_.has(REG_FEATURE_LINE_CONTINUATION);
        const bool written =
            inPlace ? genreg::appendLine(lines_.registry(), text, length, joined) : lines_.copy().write(text, length);
        return written ? 0 : trace_.fail(165, REG_RECORD_WRITE_FAILED, ossErrorMapSystem(errno));
    }

    bool goesOn_ = false;  // the last line ends in a continuation, as no other can
};

class TextChange final : public genreg::ChangeWalk<TextUpdate, TextLine> {
public:
    using ChangeWalk::ChangeWalk;

private:
    unsigned int replace(const TextLine& line) noexcept override {
        char* const text = lines_.text(line);
        if (const unsigned int rc = lines_.format(call_.record, text)) {
            return rc;
        }
        return lines_.keepsLines() ? writeKept(line, lines_.patch(line, text))
                                   : writeEnded({text, ::strnlen(text, REG_LINE_SIZE)});
    }

    // Kept: a line that says so already stays as it stands.
    unsigned int keep(const TextLine& line) noexcept override { return writeEnded(line); }

    [[nodiscard]] unsigned int writeKept(const TextLine& line, const genreg::LinePatch& patch) noexcept {
        const TextLine tail = {line.raw + patch.tail, line.length - patch.tail};
        const std::size_t ended = tail.endsInNewline() ? 0 : 1;
        if (patch.front + patch.pieceLength + tail.length + ended >= REG_LINE_SIZE) {
            (void)trace_.fail(142, REG_LINE_TOO_LONG);
            return trace_.fail(143, REG_FORMAT_FAILED);
        }
        unsigned int rc = write(line.raw, patch.front);
        rc = rc != 0 ? rc : write(patch.piece, patch.pieceLength);
        return rc != 0 ? rc : writeEnded(tail);
    }
};

class TextDelete final : public genreg::DeleteWalk<TextUpdate, TextLine> {
public:
    using DeleteWalk::DeleteWalk;

private:
    // Kept: a delete gives no last line a newline.
    unsigned int carry(const TextLine& line) noexcept override { return write(line.raw, line.length); }
};

// Kept: the text engine calls Notify, but never Log.
constexpr UpdatePlan PLAN = {.discards = true, .logs = false};
// Kept: a refused add leaves its copy, which the next update sets aside.
constexpr UpdatePlan ADD_PLAN = {.discards = false, .logs = false};

}  // namespace

unsigned int GenRegText::Add(unsigned long mask, void* record) noexcept {
    OperationTrace trace{Function::TextAdd};
    if (const unsigned int rc = CheckFuncPtrs()) {
        return trace.fail(5, REG_CALLBACK_MISSING, rc);
    }
    return runUpdate<TextAdd>(*this, trace, TEXT_TAG, {REG_OP_ADD, mask, record, nullptr}, ADD_PLAN);
}

unsigned int GenRegText::Change(unsigned long mask, void* key, void* record) noexcept {
    OperationTrace trace{Function::TextChange};
    return runUpdate<TextChange>(*this, trace, TEXT_TAG, {REG_OP_CHANGE, mask, record, key}, PLAN);
}

unsigned int GenRegText::Delete(unsigned long mask, void* key) noexcept {
    OperationTrace trace{Function::TextDelete};
    return runUpdate<TextDelete>(*this, trace, TEXT_TAG, {REG_OP_DELETE, mask, nullptr, key}, PLAN);
}
