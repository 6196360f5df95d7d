// The change log: a line per change in a file that somebody has to create first.
//
//   TS="<time>";CALLER=<function>;PID=<pid>;U=<uid>;BL=<build>;FP=<fixpack>;PATH=<registry>;ACT=<action>;
//   CL=<command line>;REC=<record>[!<new record>]
//
// The file lies where anyone may plant one, so it is never created, never reached through a link, and judged by the
// open descriptor: a second name of it may be somebody's file, planted here. A line leaves in one write: lines of two
// processes never mix.

#include <genreg/GlobalReg.h>
#include <genreg/VersionCodes.h>
#include <install/Install.h>
#include <osse/Log.h>
#include <osse/Text.h>
#include <osse/Time.h>

#include <cstring>
#include <ctime>
#include <string_view>

#include "genreg/core/FunctionTrace.h"
#include "genreg/global/Fields.h"
#include "platform/posix/Posix.h"

using genreg::CauseMark;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::RecordType;
using genreg::recordTypeOf;
using genreg::textOf;
using genreg::valueOf;

namespace {

constexpr char LOG_PATH[] = "/tmp/globalreg.debug";
constexpr unsigned long LOG_PERMISSIONS = 0666;
constexpr char NO_COMMAND_LINE[] = "N/A";
constexpr std::size_t COMMAND_LINE_SIZE = 1024;
constexpr std::size_t COMMAND_LINE_LIMIT = 1022;
constexpr std::size_t VERSION_TEXT_SIZE = 24;
constexpr std::size_t TIME_TEXT_SIZE = 64;

// Two records, the paths and the command line always fit; a longer line is cut, its newline is not.
class LogLine {
public:
    void append(std::string_view text) noexcept {
        const std::size_t taken = text.copy(text_ + length_, LIMIT - length_);
        length_ += taken;
    }
    void append(char character) noexcept { append(std::string_view(&character, 1)); }
    void append(int number) noexcept {
        char digits[16];
        append({digits, ossSnprintf(digits, sizeof digits, "%d", number)});
    }
    [[nodiscard]] std::string_view finish() noexcept {
        text_[length_] = '\n';
        return {text_, length_ + 1};
    }

private:
    static constexpr std::size_t LIMIT = 2 * sizeof(GlobalRegRecord) + 2 * REG_PATH_SIZE + 2048;

    char text_[LIMIT + 1];
    std::size_t length_ = 0;
};

const char* actionName(unsigned long action) noexcept {
    switch (action) {
        case REG_OP_ADD:
            return "Add";
        case REG_OP_DELETE:
            return "Delete";
        case REG_OP_CHANGE:
            return "Change";
        default:
            return "Unknown";
    }
}

void timeText(char (&text)[TIME_TEXT_SIZE]) noexcept {
    OSSTime now = {};
    (void)ossTimeGetUTC(&now);
    const std::time_t seconds = now.seconds;
    if (ctime_r(&seconds, text) == nullptr) {
        text[0] = '\0';
    }
    text[std::strcspn(text, "\n")] = '\0';
}

// The first argument that does not fit ends the list.
void commandLine(int count, char* const* arguments, char (&text)[COMMAND_LINE_SIZE]) noexcept {
    if (count < 1 || arguments == nullptr) {
        std::memcpy(text, NO_COMMAND_LINE, sizeof NO_COMMAND_LINE);
        return;
    }
    std::size_t length = 0;
    text[length++] = '"';
    for (int index = 0; index < count && arguments[index] != nullptr; ++index) {
        const std::size_t size = std::strlen(arguments[index]);
        if (size + 1 >= COMMAND_LINE_LIMIT - length) {
            break;
        }
        if (index > 0) {
            text[length++] = ' ';
        }
        std::memcpy(text + length, arguments[index], size);
        length += size;
    }
    text[length++] = '"';
    text[length] = '\0';
}

void appendValue(const GlobalRegRecord& record, const GlobalRegField& field, LogLine* line) noexcept {
    switch (field.kind) {
        case GLOBALREG_FIELD_TEXT:
            line->append(textOf(record, field));
            break;
        case GLOBALREG_FIELD_VERSION: {
            char text[VERSION_TEXT_SIZE] = "";
            (void)ossVersionCodeToString(valueOf(record, field), text, sizeof text);
            line->append(std::string_view(text));
            break;
        }
        case GLOBALREG_FIELD_NUMBER:
            line->append(static_cast<int>(valueOf(record, field)));
            break;
        default:
            line->append(static_cast<char>(valueOf(record, field)));
    }
}

// A comma before each field, there or not.
void appendRecord(const GlobalRegRecord& record, LogLine* line) noexcept {
    const RecordType* type = recordTypeOf(record.recordType);
    if (type == nullptr) {
        return;
    }
    line->append(type->logLetter);
    for (const GlobalRegField& field : type->fields) {
        if (!field.logged) {
            continue;
        }
        line->append(',');
        if ((record.fieldMask & field.bit) != 0) {
            appendValue(record, field, line);
        }
    }
}

// The file, open for appending; -1 when nobody wants a log or what stands there is no plain
// file of one name.
int openLog(FunctionTrace& trace, posix::FileStatus* status) noexcept {
    char target[2];
    if (!posix::exists(LOG_PATH) || posix::readLink(LOG_PATH, target, sizeof target) >= 0) {
        return -1;
    }
    int descriptor = -1;
    if (const unsigned int rc = posix::openToAppend(LOG_PATH, &descriptor)) {
        trace.ignore(10, rc, rc);
        return -1;
    }
    if (posix::statusOf(descriptor, status) != 0 || !status->regular || status->links != 1) {
        (void)posix::closeDescriptor(descriptor);
        return -1;
    }
    return descriptor;
}

struct LogPrefix {
    unsigned int caller;  // function id
    unsigned long action;
    const char* commandLine;
};

void appendPrefix(const LogPrefix& prefix, LogLine* line) noexcept {
    char path[REG_PATH_SIZE] = "";
    unsigned short length = sizeof path;
    (void)GetGlobalRegPathnameInternal(path, &length, false);
    char time[TIME_TEXT_SIZE];
    timeText(time);
    SqleLevelInfo level = {};
    (void)sqleGetLevelInfo(SQLE_LEVEL_INFO_VERSION, &level);
    const char* caller = prefix.caller == 0 ? "UNKNOWN" : ecfGetFunctionName(prefix.caller);
    char text[2 * REG_PATH_SIZE + 1024];
    const unsigned long size =
        ossSnprintf(text, sizeof text, "TS=\"%s\";CALLER=%s;PID=%d;U=%d;BL=%s;FP=%lu;PATH=%s;ACT=%s;CL=%s;REC=", time,
                    caller, static_cast<int>(posix::processId()), static_cast<int>(posix::userId()), level.buildLevel,
                    level.fixpackNumber, path, actionName(prefix.action), prefix.commandLine);
    line->append(std::string_view(text, size));
}

}  // namespace

unsigned int GlobalReg::Log(GenRegBase* object, unsigned long action, void* first, void* second) noexcept {
    FunctionTrace trace{Function::GlobalLog};
    const CauseMark mark;
    posix::FileStatus status = {};
    const int descriptor = openLog(trace, &status);
    if (descriptor == -1) {
        return trace.exit(0);
    }
    auto* registry = static_cast<GlobalReg*>(object);
    char arguments[COMMAND_LINE_SIZE];
    commandLine(registry->argumentCount_, registry->arguments_, arguments);
    LogLine line;
    appendPrefix({registry->GetChangeLoggingFuncID(), action, arguments}, &line);
    if (first != nullptr) {
        appendRecord(*static_cast<const GlobalRegRecord*>(first), &line);
    }
    if (action == REG_OP_CHANGE && second != nullptr) {
        line.append('!');
        appendRecord(*static_cast<const GlobalRegRecord*>(second), &line);
    }
    const std::string_view text = line.finish();
    if (const unsigned int rc = posix::writeOnce(descriptor, text.data(), text.size())) {
        trace.ignore(20, rc, rc);
    }
    // Whoever comes next must be able to write to it as well. Refused where the file is somebody else's.
    (void)posix::setPermissions(descriptor, LOG_PERMISSIONS);
    (void)posix::setOwner(descriptor, status.owner, status.group);
    if (const unsigned int rc = posix::closeDescriptor(descriptor)) {
        trace.ignore(30, rc, rc);
    }
    mark.restore();
    return trace.exit(0);
}
