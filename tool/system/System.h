// What the tool needs of the operating system: nothing outside this room asks for it in another way. What a system does
// in its own way is in the folder of its name.
//
// A system's error is its errno, and 0 means that there was none.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tool {

// --- the standard files ------------------------------------------------------------------------------------------

// Opens the null device for standard input and standard error where they are closed, so that no file that is opened
// later takes their place. Before anything else is opened.
void fillClosedStandardFiles() noexcept;

// Takes the place of standard output, so that nothing but the tool writes to the user's. Null when that was closed.
[[nodiscard]] std::FILE* takeStandardOutput() noexcept;

[[nodiscard]] bool isTerminal(std::FILE* stream) noexcept;
// 0 where it is none, or does not tell.
[[nodiscard]] std::size_t terminalColumns(std::FILE* stream) noexcept;

// Ends the process. What it has is not torn down, which takes longer than to let the system have it back: what must be
// written out is, before.
[[noreturn]] void leave(int status) noexcept;

// --- files -------------------------------------------------------------------------------------------------------

// What a file is besides its contents: an update puts a new file in its place, which is to be given all of it.
struct Belongings {
    uid_t owner = 0;
    gid_t group = 0;
    mode_t permissions = 0;
    std::map<std::string, std::string> attributes;  // what the library carries, by what users call it
};

// Of the file that the path leads to; of a file that is not there, nothing.
[[nodiscard]] Belongings belongingsOf(const std::string& path);

// By name where it has one, else by number.
[[nodiscard]] std::string userName(uid_t user);
[[nodiscard]] std::string groupName(gid_t group);

// Of the file itself, were it a link; none where there is none.
[[nodiscard]] std::optional<uid_t> ownerOf(const std::string& path);
// Whether this process may take it out of a folder where only owners do.
[[nodiscard]] bool mayMove(const std::string& path);
// Whether its folder lets this process take it out: in some only owners do.
[[nodiscard]] bool folderLetsMove(const std::string& path);

// An attribute that forbids a second name for the file, and so its replacement, to everybody.
struct ForbiddingAttribute {
    std::string seenBy;  // the command that shows it
    std::string undone;  // the one that takes it away, less the name of the file
};
[[nodiscard]] std::optional<ForbiddingAttribute> forbiddingAttribute(const std::string& path);

// What the place of a file has to do with its replacement.
struct FilePlace {
    bool readOnly = false;      // its file system is
    bool ofNetwork = false;     // so is it, as far as the system tells
    bool withoutLinks = false;  // it makes no hard links, as far as its kind tells
    bool isMount = false;       // the file is mounted there by itself
    bool takesFiles = true;
    unsigned long long room = 0;  // bytes that this process may still write there
};
// None where nobody can tell.
[[nodiscard]] std::optional<FilePlace> placeOf(const std::string& path);

// Whether this process may write to the file, or put names into the folder. The system's error.
[[nodiscard]] int writeRefused(const std::string& path, bool folder) noexcept;

// A step that failed, in words that follow "cannot", and the system's error.
struct FailedStep {
    std::string step;
    int error = 0;
};
// Makes the calls of a commit in the folder, with files of its own of so many bytes, and takes those away again. None
// where all went well. Signals that would end the tool wait meanwhile.
[[nodiscard]] std::optional<FailedStep> rehearseCommit(const std::string& folder, std::size_t bytes);

// What tells a file from every other.
struct FileNumber {
    unsigned long device = 0;
    unsigned long inode = 0;

    bool operator==(const FileNumber&) const = default;
};
// Of the file itself, were it a link, and of an open one; none where there is none.
[[nodiscard]] std::optional<FileNumber> fileNumberOf(const std::string& path);
[[nodiscard]] std::optional<FileNumber> fileNumberOf(int descriptor);

// Another descriptor of what is open, for commands to inherit: its number is not among those that shell scripts use
// for their own. This process's programs do not inherit it by themselves. -1 with errno.
[[nodiscard]] int descriptorToInherit(int descriptor) noexcept;

// By what is open, as the name may change hands.
[[nodiscard]] int setPermissions(std::FILE* stream, mode_t permissions) noexcept;

// Makes an empty file that must not be there, for its owner alone: the one of the folder, as far as this process may
// give it away. The system's error.
[[nodiscard]] int makePrivateFile(const std::string& path, const std::string& folder) noexcept;

// Makes a folder for this user alone; its name ends in XXXXXX, and is what comes of it.
[[nodiscard]] int makePrivateFolder(std::string& path);

// --- the machine -------------------------------------------------------------------------------------------------

[[nodiscard]] std::string hostName();
// Another text after every start of the machine; empty where nobody can tell.
[[nodiscard]] std::string bootId();

// --- text --------------------------------------------------------------------------------------------------------

// Whether the text fits a pattern as shells have them: *, ? and [...].
[[nodiscard]] bool fitsPattern(const std::string& pattern, const std::string& text) noexcept;

// While it lives the C library takes this thread's characters for those of UTF-8, where it knows them.
class Utf8Characters {
public:
    Utf8Characters();
    ~Utf8Characters();
    Utf8Characters(const Utf8Characters&) = delete;
    Utf8Characters& operator=(const Utf8Characters&) = delete;

    [[nodiscard]] bool areKnown() const noexcept { return before_ != nullptr; }

private:
    void* before_;
};

// --- processes ---------------------------------------------------------------------------------------------------

[[nodiscard]] long processId() noexcept;
[[nodiscard]] bool isSuperuser() noexcept;

// The name of its program; empty when nobody can tell.
[[nodiscard]] std::string programOf(long process);

// A command that runs beside the tool. Signals that the tool handles in its own way are as they are by default in it.
struct ChildSetup {
    std::vector<std::string> words;        // the first one is the program, looked for on the PATH
    std::vector<std::string> environment;  // "NAME=value"
    int input = -1;                        // becomes its standard input; -1: the tool's own
    int output = -1;                       // becomes its standard output; -1: the tool's own
    int inherited = -1;                    // it has this one, too, by the same number; -1: none
};

// The environment of the tool.
[[nodiscard]] std::vector<std::string> inheritedEnvironment();

// Starts it in a process group of its own, to be ended as a whole. The system's error.
[[nodiscard]] int startGroup(const ChildSetup& setup, pid_t* child);
// Whether it has ended; then its status as shells tell it.
[[nodiscard]] bool hasEnded(pid_t child, int* exitStatus) noexcept;
// Asks it and all that it started to end; or does not ask.
void endGroup(pid_t child, bool atOnce) noexcept;

// Runs it and waits for its end. Meanwhile the terminal's signals are the command's to act upon and the others are
// handed on to it: what the tool holds for it is given back when it has ended, not before. The system's error.
[[nodiscard]] int runInForeground(const ChildSetup& setup, int* exitStatus);

// A file without a name that holds the text and stands at its beginning, which no child inherits. Null with errno.
[[nodiscard]] std::FILE* unnamedFile(const std::string& text) noexcept;

// --- locks -------------------------------------------------------------------------------------------------------

// The record lock that a daemon holds on its lock file, asked for from outside.
struct ClassicLock {
    std::optional<bool> held;  // none: nobody can tell, since the file cannot be read
    long pid = 0;              // of the holder; 0 when the lock names none
};
[[nodiscard]] ClassicLock classicLockOf(const std::string& path);

// Such a lock of this process's own. Closing any other descriptor of the file would give it back, so the file is opened
// once.
class OwnClassicLock {
public:
    OwnClassicLock() = default;
    ~OwnClassicLock();
    OwnClassicLock(const OwnClassicLock&) = delete;
    OwnClassicLock& operator=(const OwnClassicLock&) = delete;

    // Opens the file, made where it is missing and never through a link. The system's error.
    [[nodiscard]] int open(const char* path, mode_t permissions);
    // Takes the lock. The system's error; held by somebody else: EAGAIN, and by whom (0: nobody can tell).
    [[nodiscard]] int take(long* holder);

private:
    int descriptor_ = -1;
};

// --- signals -----------------------------------------------------------------------------------------------------

// Signals that would end the tool wait while this lives.
class HeldSignals {
public:
    HeldSignals() noexcept;
    ~HeldSignals();
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

private:
    sigset_t before_{};
};

// Asks, and gives a line of standard input, less its newline. None at its end, and where a signal asked for the end
// from the question on: who asks one ends in his own way then.
[[nodiscard]] std::optional<std::string> lineFromTerminal(const std::function<void()>& ask);

// From now on the text is said on standard error when SIGINT, SIGTERM or SIGHUP ends the tool, if the file at the path
// is then what it was at this call. Signals that are handled or ignored already stay so.
void tellOnInterrupt(const std::string& path, const std::string& text) noexcept;

// From the first one on, SIGINT and SIGTERM ask for the end. So does SIGHUP, unless it is a monitor's: then it asks to
// look. All of them, and a child's end, are delivered while somebody waits and at no other time.
class WatchSignals {
public:
    explicit WatchSignals(bool monitor);

    [[nodiscard]] bool endAsked() const noexcept;
    // Whether somebody asked to look since the last time.
    [[nodiscard]] bool takeLook() noexcept;
    // Until a signal came or the time is over; below 0 there is no end to it.
    void wait(int milliseconds) const noexcept;

    // Those that are blocked while somebody waits.
    [[nodiscard]] const sigset_t& whileWaiting() const noexcept { return whileWaiting_; }

private:
    sigset_t whileWaiting_{};
};

// --- news --------------------------------------------------------------------------------------------------------

// News of files: that one of the names was created, replaced, written or removed in its directory.
class FileNews {
public:
    FileNews();
    ~FileNews();
    FileNews(const FileNews&) = delete;
    FileNews& operator=(const FileNews&) = delete;

    // From now on. The system's error, and the directory that cannot be watched (empty when it is none of them).
    [[nodiscard]] int watch(const std::vector<std::string>& paths, std::string* refused);
    // Until there is news, a signal came or the time is over; below 0 there is no end to it. `reader`: a descriptor
    // whose reader going away is news, too. False when that happened.
    [[nodiscard]] bool wait(const WatchSignals& signals, int reader, int milliseconds);
    // Takes in what there is; whether any of it concerns the files.
    [[nodiscard]] bool take();
    // Watches anew the directories that went away. Whether all are watched.
    [[nodiscard]] bool mend();

private:
    struct Watched;
    std::unique_ptr<Watched> watched_;
};

}  // namespace tool
