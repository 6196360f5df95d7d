// What is said when somebody ends the tool by a signal.
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "system/System.h"

namespace tool {
namespace {

// What a handler reads: it runs in the middle of anything.
constexpr std::size_t MOST_TEXT = 4096;
char toldPath[MOST_TEXT];
char toldText[MOST_TEXT];
struct stat seen;
volatile std::sig_atomic_t isSeen = 0;
volatile std::sig_atomic_t isSet = 0;

bool isUnchanged() {
    struct stat now {};
    if (stat(toldPath, &now) != 0) {
        return isSeen == 0;
    }
    return isSeen != 0 && now.st_dev == seen.st_dev && now.st_ino == seen.st_ino && now.st_size == seen.st_size &&
           now.st_ctime == seen.st_ctime;
}

// Whatever was to come does not come any more, so what holds now stays.
extern "C" void tellAndEnd(int signal) {
    if (isSet != 0 && isUnchanged()) {
        (void)!write(STDERR_FILENO, toldText, std::strlen(toldText));
    }
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    (void)sigaction(signal, &action, nullptr);
    sigset_t own;
    sigemptyset(&own);
    sigaddset(&own, signal);
    (void)sigprocmask(SIG_UNBLOCK, &own, nullptr);
    (void)raise(signal);
}

}  // namespace

void tellOnInterrupt(const std::string& path, const std::string& text) noexcept {
    isSet = 0;
    if (path.size() >= MOST_TEXT || text.size() >= MOST_TEXT) {
        return;
    }
    std::memcpy(toldPath, path.c_str(), path.size() + 1);
    std::memcpy(toldText, text.c_str(), text.size() + 1);
    isSeen = stat(toldPath, &seen) == 0 ? 1 : 0;
    isSet = 1;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {};
        if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_DFL) {
            struct sigaction action {};
            action.sa_handler = tellAndEnd;
            (void)sigaction(signal, &action, nullptr);
        }
    }
}

}  // namespace tool
