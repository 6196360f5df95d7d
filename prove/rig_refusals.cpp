// Refusals: the failure points that no failing call of the system leads to. A client hands in what it must not, a
// platform library refuses what the one that comes with this library never does, a descriptor or a file is changed
// behind an object's back. Each is provoked, and the code that comes back and the line of the diagnostic log (function,
// probe, code) are held against what is expected.
//
// And memory that cannot be given back, at each time that an update or a look-up gives some back: what was done stands,
// whatever is answered.
#include <fcntl.h>
#include <genreg/genreg.h>
#include <osse/Errors.h>
#include <osse/Memory.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include "standin/Platform.h"
#include "standin/Schemas.h"
#include "support/Aftermath.h"
#include "support/Place.h"
#include "support/Rig.h"
#include "support/Stepper.h"

namespace {

using prove::Binary;
using prove::Plain;
using prove::PlatformCall;
using prove::Refusal;
using prove::Text;

GenRegVarValRecord pair(const char* variable, const char* value) {
    GenRegVarValRecord record = {};
    record.contains = VARVAL_HAS_PAIR;
    record.variable = const_cast<char*>(variable);
    record.value = const_cast<char*>(value);
    return record;
}

std::string frame(std::size_t length) {
    const auto size = static_cast<unsigned int>(length);
    std::string bytes(reinterpret_cast<const char*>(&size), sizeof size);
    return bytes + std::string(length, 'x');
}

// What the slots of a binary schema do behind the back of whoever calls them: the stream's descriptor or file.
std::FILE* victim = nullptr;

// Puts a descriptor that cannot be read in place of the stream's.
void blind(std::FILE* stream) {
    const int unreadable = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    (void)::dup2(unreadable, ::fileno(stream));
    (void)::close(unreadable);
}

unsigned int sizeAndBlind(unsigned long* size) {
    blind(victim);
    return GenRegBinVarVal::GetMaxRecordSize(size);
}

unsigned int sizeAndTruncate(unsigned long* size) {
    constexpr long KEPT = 4100;
    (void)!::ftruncate(::fileno(victim), KEPT);
    return GenRegBinVarVal::GetMaxRecordSize(size);
}

std::string truncated;

unsigned int matchAndTruncate(unsigned long /*mask*/, void* /*record*/, void* /*key*/) {
    (void)!::truncate(truncated.c_str(), 64L * 1024);
    return 0;
}

// --- the rig ---------------------------------------------------------------------------------------------------------

// A line of the diagnostic log.
struct Point {
    const char* function;
    unsigned int probe;
    unsigned int code;
};

class Refusals {
public:
    explicit Refusals(prove::Rig& rig) : rig_(rig), file_(rig.scratch() + "/reg") {
        const char* const given = std::getenv("RVN_DIAG_LOG");
        log_ = given != nullptr ? given : rig.scratch() + "/log";
        (void)::setenv("RVN_DIAG_LOG", log_.c_str(), 1);
        (void)::setenv("RVN_GLOBAL_REG_PATHNAME", file_.c_str(), 1);
    }

    void nullArguments();
    void platform();
    void streams();
    void frames();
    void calls();
    void changeLog();
    void cleanUps();

private:
    void lay(const std::string& bytes) const { std::ofstream(file_, std::ios::binary) << bytes; }
    [[nodiscard]] std::string path(const char* suffix) const { return file_ + suffix; }
    [[nodiscard]] std::string logged() const { return prove::bytesOf(log_).value_or(""); }

    // Whether the log got the line since it had that many bytes.
    [[nodiscard]] bool tells(const Point& point, std::size_t since) const {
        char code[32];
        char probe[32];
        (void)std::snprintf(code, sizeof code, " code=0x%08x", point.code);
        (void)std::snprintf(probe, sizeof probe, " probe=%u", point.probe);
        const std::string text = logged();
        for (std::size_t at = since; at < text.size();) {
            const std::size_t end = std::min(text.find('\n', at), text.size());
            const std::string line = text.substr(at, end - at);
            const bool ends = line.ends_with(probe) || line.find(std::string(probe) + " ") != std::string::npos;
            if (ends && line.find(code) != std::string::npos &&
                line.find(" " + std::string(point.function) + "(0x") != std::string::npos) {
                return true;
            }
            at = end + 1;
        }
        return false;
    }

    // Provokes it once, and expects that code.
    void expect(const Point& point, unsigned int answer, const std::function<unsigned int()>& provoke) {
        rig_.begin(std::string(point.function) + " " + std::to_string(point.probe));
        const std::size_t since = logged().size();
        const unsigned int rc = provoke();
        rig_.check(rc == answer, "answers " + prove::codeText(rc));
        rig_.check(tells(point, since), "the log does not tell of it");
    }
    void expect(const Point& point, const std::function<unsigned int()>& provoke) {
        expect(point, point.code, provoke);
    }

    // Refuses each call of the kind in turn, until the operation makes no further one: the point is told of once.
    void expectOnce(const Point& point, PlatformCall call, const std::function<unsigned int()>& provoke) {
        rig_.begin(std::string(point.function) + " " + std::to_string(point.probe));
        const std::size_t since = logged().size();
        for (long n = 0;; ++n) {
            const Refusal refusal(call, n);
            (void)provoke();
            if (refusal.calls() <= n) {
                break;
            }
        }
        rig_.check(tells(point, since), "the log does not tell of it");
    }

    // In a child, one of whose calls of the system fails: the first for which `picks` holds.
    void expectFailing(const Point& point, unsigned int answer, int error,
                       const std::function<bool(pid_t, const prove::SystemCall&)>& picks,
                       const std::function<unsigned int()>& provoke) {
        expect(point, answer, [&] {
            bool failed = false;
            prove::StepHooks hooks;
            hooks.entry = [&](pid_t child, const prove::SystemCall& call) {
                const bool fails = !failed && picks(child, call);
                failed = failed || fails;
                return fails ? prove::Verdict{prove::Verdict::Kind::Fail, error} : prove::Verdict{};
            };
            unsigned int* const rc = shared_;
            const prove::StepResult result = prove::step(
                [&] {
                    prove::beginPart();
                    *rc = provoke();
                    prove::endPart();
                    return 0;
                },
                hooks);
            rig_.check(failed && result.exitCode == 0, "the call was not made, or the child died");
            return *rc;
        });
    }

    prove::Rig& rig_;
    std::string file_;
    std::string log_;
    unsigned int* const shared_ = &prove::sharedReport()->code;
};

void Refusals::nullArguments() {
    char line[REG_LINE_SIZE] = {};
    GenRegVarValRecord nameless = {};
    nameless.contains = VARVAL_HAS_PAIR;
    unsigned long size = 0;
    void* buffer = nullptr;
    unsigned short length = 0;
    Binary binary(file_);
    unsigned int rc = 0;
    unsigned long version = 0;
    const auto refused = [&](const char* function, unsigned int code, const std::function<unsigned int()>& provoke) {
        expect({function, 10, code}, provoke);
    };
    refused("ExtractNextField", REG_INVALID_ARGUMENT, [] { return ExtractNextField(nullptr, nullptr); });
    refused("StripWhiteSpace", REG_EMPTY_ARGUMENT, [] { return StripWhiteSpace(nullptr); });
    refused("GenRegWriteLine", REG_INVALID_ARGUMENT, [] { return GenRegWriteLine(nullptr, 80, nullptr); });
    refused("GenRegReadLine", REG_INVALID_ARGUMENT, [&] {
        (void)GenRegReadLine(nullptr, nullptr, 0, nullptr, &rc, false);
        return rc;
    });
    using Callback = unsigned int (*)(void*);
    const std::pair<const char*, Callback> records[] = {
        {"GenRegVarVal::PrintRecord", GenRegVarVal::PrintRecord},
        {"GenRegServices::PrintRecord", GenRegServices::PrintRecord},
        {"GenRegInitTab::PrintRecord", GenRegInitTab::PrintRecord},
        {"GenRegBinVarVal::PrintRecord", GenRegBinVarVal::PrintRecord},
        {"GenRegVarVal::ValidateRecord", [](void* record) { return GenRegVarVal::ValidateRecord(0, record); }},
        {"GenRegServices::ValidateRecord", [](void* record) { return GenRegServices::ValidateRecord(0, record); }},
        {"GenRegInitTab::ValidateRecord", [](void* record) { return GenRegInitTab::ValidateRecord(0, record); }},
        {"GenRegVarVal::ParseLine", [](void* record) { return GenRegVarVal::ParseLine(record, ""); }},
        {"GenRegServices::ParseLine", [](void* record) { return GenRegServices::ParseLine(record, ""); }},
        {"GenRegInitTab::ParseLine", [](void* record) { return GenRegInitTab::ParseLine(record, ""); }},
        {"GenRegVarVal::FormatLine", [](void* record) { return GenRegVarVal::FormatLine(record, nullptr); }},
        {"GenRegServices::FormatLine", [](void* record) { return GenRegServices::FormatLine(record, nullptr); }},
        {"GenRegInitTab::FormatLine", [](void* record) { return GenRegInitTab::FormatLine(record, nullptr); }},
    };
    for (const auto& [function, callback] : records) {
        refused(function, REG_EMPTY_ARGUMENT, [callback = callback] { return callback(nullptr); });
    }
    expect({"GenRegBinVarVal::MatchRecord", 10, REG_EMPTY_ARGUMENT}, 0,
           [] { return GenRegBinVarVal::MatchRecord(0, nullptr, nullptr); });
    refused("fromBigEndianUint32", REG_NULL_POINTER, [] { return fromBigEndianUint32(nullptr, nullptr); });
    refused("toBigEndianUint32", REG_NULL_POINTER, [] { return toBigEndianUint32(nullptr, 0); });
    refused("genregLockStatus", REG_NULL_POINTER, [] { return genregLockStatus(nullptr, nullptr); });
    refused("genregSyncGlobalRegFixpackNumber", REG_NULL_POINTER,
            [] { return genregSyncGlobalRegFixpackNumber(nullptr, nullptr); });
    refused("ossVersionStringToCode", REG_VERSION_NULL, [&] { return ossVersionStringToCode(nullptr, &version); });
    expect({"ossOpenInstanceList", 30, REG_LIST_SERVICE_NULL},
           [&] { return ossOpenInstanceList(nullptr, &buffer, false); });
    refused("setPaths", REG_EMPTY_ARGUMENT, [] { return GenRegInitTab().setPaths(nullptr); });
    expect({"GenRegVarVal::FormatLine", 20, REG_NAME_MISSING},
           [&] { return GenRegVarVal::FormatLine(&nameless, line); });
    expect({"ReadRecord", 5, REG_NULL_POINTER}, [&] { return binary.ReadRecord(nullptr, &buffer, &size); });
    expect({"WriteRecord", 5, REG_NULL_POINTER}, [&] { return binary.WriteRecord(nullptr, nullptr); });
    expect({"GetGlobalRegPathnameInternal", 20, REG_NULL_POINTER},
           [&] { return GetGlobalRegPathnameInternal(line, nullptr, true); });
    expect({"GetGlobalRegPathnameInternal", 10, REG_PATH_BUFFER_NULL},
           [&] { return GetGlobalRegPathnameInternal(nullptr, &length, true); });
    expect({"ossOpenInstanceList", 10, REG_LIST_HANDLE_NULL},
           [] { return ossOpenInstanceList("copies", nullptr, false); });
    expect({"ossOpenServiceList", 10, REG_LIST_HANDLE_NULL}, [] { return ossOpenServiceList(nullptr); });
}

void Refusals::platform() {
    constexpr unsigned int REFUSED = prove::REFUSED;
    const auto refused = [](PlatformCall call, const std::function<unsigned int()>& provoke) {
        return [call, provoke] {
            const Refusal refusal(call, 0);
            return provoke();
        };
    };
    const auto construct = [&] {
        const Binary object(file_);
        return object.code;
    };
    std::filesystem::remove(file_);
    expect({"setRegistryPaths", 30, REG_BASE_NAME_FAILED}, refused(PlatformCall::BaseName, construct));
    expect({"setRegistryPaths", 40, REG_DIRECTORY_NAME_FAILED}, refused(PlatformCall::DirectoryName, construct));
    expect({"GenRegBinVarVal", 20, REG_BASE_NAME_FAILED}, refused(PlatformCall::BaseName, construct));
    Text text(file_);
    expect({"Lock", 60, REFUSED}, refused(PlatformCall::DirectoryName, [&] {
               return text.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT | REG_LOCK_CREATE_DIR, 0);
           }));
    expect({"OpenReg", 30, REFUSED}, refused(PlatformCall::DirectoryName, [&] { return text.OpenReg(REG_OP_ADD); }));
    Text nowhere(rig_.scratch() + "/none/reg");
    expect({"OpenReg", 40, REG_CREATE_DIRECTORY_FAILED},
           refused(PlatformCall::DirectoryCreate, [&] { return nowhere.OpenReg(REG_OP_ADD); }));
    char version[24];
    expect({"ossVersionCodeToString", 20, REG_VERSION_FORMAT_FAILED},
           refused(PlatformCall::Snprintf, [&] { return ossVersionCodeToString(1, version, sizeof version); }));
    GlobalReg global;
    expect({"genregSyncGlobalRegFixpackNumber", 20, REFUSED},
           refused(PlatformCall::LevelInfo, [&] { return genregSyncGlobalRegFixpackNumber(&global, nullptr); }));
    expect({"genregSyncGlobalRegFixpackNumber", 30, REG_OPEN_FILE_FAILED},
           [&] { return genregSyncGlobalRegFixpackNumber(&global, nullptr); });
    std::FILE* const nothing = std::fopen("/dev/null", "w");
    char line[] = "text\n";
    expect({"GenRegWriteLine", 20, REG_NO_WORK_BUFFER},
           refused(PlatformCall::Alloc, [&] { return GenRegWriteLine(line, 80, nothing); }));
    expect({"GenRegWriteLine", 30, REG_FREE_WORK_BUFFER_FAILED},
           refused(PlatformCall::Free, [&] { return GenRegWriteLine(line, 80, nothing); }));
    (void)std::fclose(nothing);
}

void Refusals::streams() {
    lay("a = 1\n");
    expect({"genregLockStatus", 20, OSS_SYSTEM_ERROR_BASE + ENOTDIR},
           [&] { return genregLockStatus(path("/lock").c_str(), nullptr); });
    Text text(file_);
    long long before = -1;
    (void)text.OpenScan();
    expect({"getRegFilePosition", 20, REG_NULL_POINTER}, [&] { return text.getRegFilePosition(nullptr); });
    expect({"setRegFilePosition", 20, REG_NULL_POINTER}, [&] { return text.setRegFilePosition(nullptr); });
    expect({"setRegFilePosition", 30, REG_SET_POSITION_FAILED}, [&] { return text.setRegFilePosition(&before); });
    int pipe[2];
    (void)!::pipe(pipe);
    (void)::dup2(pipe[0], ::fileno(text.regFp));  // a pipe has no position
    long long position = 0;
    expect({"getRegFilePosition", 30, REG_GET_POSITION_FAILED}, [&] { return text.getRegFilePosition(&position); });
    (void)text.CloseScan();
    (void)::close(pipe[0]);
    (void)::close(pipe[1]);

    int ports[8];
    unsigned int rc = 0;
    class Services : public GenRegServices {
    public:
        using GenRegFile::regFp;
        using GenRegServices::GenRegServices;
    };
    Services services(file_.c_str(), &rc);
    (void)services.OpenReg(REG_OP_READ);
    expect({"GetPortnumbers", 15, REG_NO_RECORD_BUFFER}, [&] {
        const Refusal refusal(PlatformCall::New, 0);
        return services.GetPortnumbers(ports);
    });
    blind(services.regFp);
    expect({"GetPortnumbers", 20, REG_READ_FAILED}, [&] { return services.GetPortnumbers(ports); });
    (void)services.CloseReg(REG_OP_READ);

    const auto destroyWithout = [&](const std::function<int(Text&)>& descriptor) {
        Text doomed(file_);
        (void)doomed.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT, 0);
        (void)doomed.OpenReg(REG_OP_CHANGE);
        (void)::close(descriptor(doomed));
        return 0U;
    };
    expect({"~GenRegFile", 10, REG_CLOSE_LOCK_FAILED}, 0,
           [&] { return destroyWithout([](Text& object) { return object.lockFile.getFileHandle(); }); });
    expect({"~GenRegFile", 20, REG_CLOSE_FILE_FAILED}, 0,
           [&] { return destroyWithout([](Text& object) { return ::fileno(object.regFp); }); });
    expect({"~GenRegFile", 30, REG_CLOSE_TMP_FAILED}, 0,
           [&] { return destroyWithout([](Text& object) { return ::fileno(object.tmpFp); }); });
}

void Refusals::frames() {
    constexpr std::size_t LONG = 8000;  // more than a stream reads ahead
    const auto readFirst = [&](GenRegGetMaxRecordSize size, std::size_t missing = 0) {
        const std::string whole = frame(LONG) + frame(LONG);
        lay(whole.substr(0, whole.size() - missing));
        Binary binary(file_);
        binary.getMaxRecordSize = size;
        std::FILE* const stream = std::fopen(file_.c_str(), "r+b");
        victim = stream;
        void* buffer = ossMemAlloc(64);
        unsigned long length = 0;
        const unsigned int rc = binary.ReadRecord(stream, &buffer, &length);
        rig_.check(length == LONG, "the length is not told");
        (void)ossMemFree(buffer);
        (void)std::fclose(stream);
        return rc;
    };
    expect({"ReadRecord", 20, REG_FRAME_TRUNCATED},
           [&] { return readFirst(GenRegBinVarVal::GetMaxRecordSize, frame(LONG).size() + 1); });
    expect({"ReadRecord", 25, REG_NO_GET_MAX_RECORD_SIZE}, [&] { return readFirst(nullptr); });
    expect({"ReadRecord", 50, REG_FRAME_PAYLOAD_READ_FAILED}, [&] { return readFirst(sizeAndBlind); });
    expect({"ReadRecord", 60, REG_FRAME_TRUNCATED}, [&] { return readFirst(sizeAndTruncate); });
    GenRegBinVarValRecord record = {};
    const auto through = [&](const char* mode, int buffering, const std::function<unsigned int(std::FILE*)>& use) {
        return [=] {
            std::FILE* const stream = std::fopen("/dev/full", mode);
            static char small[256];
            (void)std::setvbuf(stream, small, buffering, sizeof small);
            const unsigned int rc = use(stream);
            (void)std::fclose(stream);
            return rc;
        };
    };
    Binary frames(file_);
    void* nothing = nullptr;
    unsigned long none = 0;
    expect({"ReadRecord", 10, REG_FRAME_LENGTH_READ_FAILED},
           through("w", _IONBF, [&](std::FILE* stream) { return frames.ReadRecord(stream, &nothing, &none); }));
    expect({"WriteRecord", 60, REG_FRAME_LENGTH_WRITE_FAILED},
           through("w", _IONBF, [&](std::FILE* stream) { return frames.WriteRecord(stream, &record); }));
    expect({"WriteRecord", 70, REG_FRAME_PAYLOAD_WRITE_FAILED}, through("w", _IOFBF, [&](std::FILE* stream) {
               const std::string filling(248, 'x');  // leaves room for a length, and for no record
               (void)std::fputs(filling.c_str(), stream);
               return frames.WriteRecord(stream, &record);
           }));
    expectOnce({"ReadRecord", 30, REG_NO_WORK_BUFFER}, PlatformCall::Alloc,
               [&] { return readFirst(GenRegBinVarVal::GetMaxRecordSize); });
    expectOnce({"ReadRecord", 40, REG_FREE_WORK_BUFFER_FAILED}, PlatformCall::Free,
               [&] { return readFirst(GenRegBinVarVal::GetMaxRecordSize); });

    const auto look = [&] {
        GenRegBinVarValRecord found = {};
        Binary binary(file_);
        return binary.Get(0x1, &record, &found);
    };
    lay(frame(LONG));
    expectOnce({"GenRegBin::Get", 465, REG_READ_FAILED}, PlatformCall::Alloc, look);
    const auto verify = [&] {
        lay(frame(sizeof record));
        std::ofstream(path(".tmp"), std::ios::binary) << frame(sizeof record) << frame(LONG);
        Binary binary(file_);
        return binary.Verify(REG_OP_ADD, 0x1, &record, nullptr);
    };
    expectOnce({"GenRegBin::Verify", 165, REG_VERIFY_READ_FAILED}, PlatformCall::Alloc, verify);
    expect({"GenRegBin::Get", 440, REG_FRAME_TRUNCATED}, REG_READ_FAILED, [&] {
        std::string bytes;
        while (bytes.size() < 256UL * 1024) {
            bytes += frame(LONG);
        }
        lay(bytes);
        truncated = file_;
        GenRegBinVarValRecord found = {};
        Binary binary(file_);
        binary.matchRecord = matchAndTruncate;
        return binary.Get(0x1, &record, &found);
    });
    const auto change = [&] {
        lay(frame(sizeof record));
        Plain plain(file_);
        record.value = 1;
        return plain.Change(0, &record, &record);
    };
    expectOnce({"GenRegBin::Change", 525, REG_NO_RECORD_BUFFER}, PlatformCall::Alloc, change);
    std::filesystem::remove(path(".tmp"));
    std::filesystem::remove(path(".cor"));
}

void Refusals::calls() {
    if (!prove::canFailCalls()) {
        rig_.remark("not tried: what a failing call leads to; only on x86-64, and where a process may trace its child");
        return;
    }
    const auto isOn = [](long number, const std::string& target) {
        return [number, target](pid_t child, const prove::SystemCall& call) {
            return call.number == number && prove::descriptorPath(child, call.arguments[0]) == target;
        };
    };
    lay("a = 1\nb = 2\n");
    (void)::chmod(file_.c_str(), 0640);
    const auto finish = [&] {
        std::ofstream(path(".tmp")) << "a = 2\n";
        (void)::chmod(path(".tmp").c_str(), 0600);
        Text text(file_);
        const unsigned int rc = text.OpenReg(REG_OP_FINISH);
        (void)text.CloseReg(REG_OP_READ);
        return rc;
    };
    expectFailing({"OpenReg", 160, REG_SET_PERMISSIONS_FAILED}, REG_SET_PERMISSIONS_FAILED, EPERM,
                  isOn(SYS_fchmod, path(".tmp")), finish);
    const auto lookInside = [&] {
        Text text(file_, REG_FEATURE_GET_IN_SCAN);
        GenRegVarValRecord found = {};
        GenRegVarValRecord key = pair("a", nullptr);
        (void)text.OpenScan();
        (void)text.GetNext(0, &key, &found);
        return text.Get(VARVAL_MATCH_VARIABLE, &key, &found);
    };
    expectFailing(
        {"GenRegText::Get", 75, REG_OPEN_FAILED}, REG_OPEN_FAILED, EIO,
        [isSeek = isOn(SYS_lseek, file_), seeks = 0](pid_t child, const prove::SystemCall& call) mutable {
            return isSeek(child, call) && ++seeks == 2;  // the first asks where the scan begins
        },
        lookInside);
    const auto verifyDelete = [&] {
        Text text(file_, REG_FEATURE_DEFERRED_COMMIT | REG_FEATURE_ALLOW_DUPLICATES);
        GenRegVarValRecord key = pair("a", nullptr);
        return text.Verify(REG_OP_DELETE, VARVAL_MATCH_VARIABLE, nullptr, &key);
    };
    std::string lines;
    while (lines.size() < 128UL * 1024) {
        lines += "a = 1\n";
    }
    lay(lines + "b = 2\n");
    std::ofstream(path(".tmp")) << "b = 2\n";
    expectFailing(
        {"GenRegText::Verify", 125, REG_READ_FAILED}, REG_READ_FAILED, EIO,
        [reads = 0, this](pid_t child, const prove::SystemCall& call) mutable {
            return call.number == SYS_pread64 && prove::descriptorPath(child, call.arguments[0]) == file_ &&
                   ++reads == 2;
        },
        verifyDelete);
    std::filesystem::remove(path(".tmp"));
    const auto synchronise = [] {
        GlobalReg global;
        return genregSyncGlobalRegFixpackNumber(&global, nullptr);
    };
    lay("");
    expectFailing({"genregSyncGlobalRegFixpackNumber", 50, REG_OPEN_FAILED}, REG_OPEN_FAILED, EIO,
                  isOn(SYS_close, file_), synchronise);
    const auto appendFirst = [&] {
        std::filesystem::remove(file_);
        Text text(file_, REG_FEATURE_ALLOW_DUPLICATES);
        GenRegVarValRecord record = pair("a", "1");
        return text.Add(VARVAL_MATCH_VARIABLE, &record);
    };
    expectFailing({"CloseReg", 20, OSS_SYSTEM_ERROR_BASE + EIO}, 0, EIO, isOn(SYS_fsync, rig_.scratch()), appendFirst);
}

// The change log has a fixed place, so this goes on in a world of its own.
void Refusals::changeLog() {
    if (::geteuid() != 0 || !prove::canFailCalls()) {
        rig_.remark("not tried: a change log that cannot be written; only as root");
        return;
    }
    static constexpr char LOG[] = "/tmp/globalreg.debug";
    const auto change = [&] {
        char service[] = "RVN";
        OSSServiceInfo_t info = {};
        info.versionCode = 1;
        std::memcpy(info.service, service, sizeof service);
        return ossSetServiceInfo(&info);
    };
    const auto apart = [&](const std::function<bool(pid_t, const prove::SystemCall&)>& picks, const Point& point) {
        lay("");
        expectFailing(point, 0, EIO, picks, [&] {
            const bool own = ::unshare(CLONE_NEWNS) == 0 &&
                             ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                             ::mount("none", "/tmp", "tmpfs", 0, nullptr) == 0;
            return own && ::mknod(LOG, S_IFREG | 0666, 0) == 0 ? change() : 1U;
        });
    };
    for (const auto& [number, probe] : {std::pair{SYS_write, 20U}, std::pair{SYS_close, 30U}}) {
        apart(
            [number = number](pid_t child, const prove::SystemCall& call) {
                return call.number == number && prove::descriptorPath(child, call.arguments[0]) == LOG;
            },
            {"GlobalReg::Log", probe, OSS_SYSTEM_ERROR_BASE + EIO});
    }
}

// At each time that memory is given back: the operation stands, and its code is 0 or one of these.
void Refusals::cleanUps() {
    const auto isTold = [](unsigned int code) {
        constexpr unsigned int CODES[] = {REG_FREE_RECORD_FAILED,
                                          REG_FREE_OLD_RECORD_FAILED,
                                          REG_FREE_NEW_RECORD_FAILED,
                                          REG_FREE_WORK_BUFFER_FAILED,
                                          REG_FREE_PACK_BUFFER_FAILED,
                                          REG_FREE_UNPACK_BUFFER_FAILED,
                                          REG_VERIFY_FAILED};
        return code == 0 || std::find(std::begin(CODES), std::end(CODES), code) != std::end(CODES);
    };
    for (const auto& list : {prove::updates(), prove::readings()}) {
        for (const prove::Scenario& scenario : list) {
            if (scenario.large || !rig_.wants(scenario.name)) {
                continue;
            }
            const prove::Place place(rig_.scratch() + "/place", scenario);
            for (long n = 0;; ++n) {
                place.layOut();
                const auto registry = scenario.form->open(place.named(), scenario.features);
                rig_.begin(scenario.name + ", memory given back for the " + std::to_string(n) + "th time");
                const Refusal refusal(PlatformCall::Free, n);
                const unsigned int rc = scenario.operation.perform(*registry);
                const prove::State state = prove::stateOf(place, scenario);
                // The information functions have codes of their own, and their schema needs memory to pack a record.
                const bool stands =
                    state == prove::State::New || (!scenario.form->choosesFeatures && rc != 0 &&
                                                   (state == prove::State::Old || state == prove::State::Empty));
                rig_.check(isTold(rc) || !scenario.form->choosesFeatures, "answers " + prove::codeText(rc));
                rig_.check(stands, std::string("the registry is ") + prove::stateText(state));
                if (refusal.calls() <= n) {
                    break;
                }
            }
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    prove::Rig rig{"refusals", argc, argv};
    Refusals refusals(rig);
    refusals.nullArguments();
    refusals.platform();
    refusals.streams();
    refusals.frames();
    refusals.calls();
    refusals.changeLog();
    refusals.cleanUps();
    return rig.finish();
}
