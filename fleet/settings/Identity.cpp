#include "settings/Identity.h"

#include <fmt/core.h>
#include <genreg/Codes.h>
#include <genreg/GenRegVarVal.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <random>

#include "base/Answers.h"
#include "base/DiskFiles.h"
#include "base/LockPatience.h"
#include "base/Text.h"
#include "mirror/Keys.h"

namespace fleet {
namespace {

std::string fileIn(const std::string& folder) {
    return folder + "/host";
}

// The file, for changes and look-ups. Throws what the library answers.
class StateFile : public GenRegVarVal {
public:
    explicit StateFile(const std::string& path) : StateFile(path, 0) {}

    [[nodiscard]] std::string text(const char* name) {
        const char* value = nullptr;
        return GetStringValue(name, &value) ? value : "";
    }

    // In a batch.
    void set(std::string name, std::string value) {
        GenRegVarValRecord record = {};
        record.contains = VARVAL_HAS_PAIR;
        record.variable = name.data();
        record.value = value.data();
        unsigned int code = Change(VARVAL_MATCH_VARIABLE, &record, &record);
        code = code == REG_NOT_FOUND ? Add(VARVAL_MATCH_VARIABLE, &record) : code;
        answered(code == REG_UNCHANGED ? 0 : code);
    }

    void answered(unsigned int code) const {
        if (code != 0) {
            throw tool::libraryFailure(code, path_, "note what is published");
        }
    }

private:
    StateFile(const std::string& path, unsigned int code) : GenRegVarVal(path.c_str(), &code), path_(path) {
        answered(code);
        tool::waitPatiently(*this, path);
    }

    std::string path_;
};

constexpr char LOCK_NAME[] = "/publisher.lck";

// What there is not yet is written as a word, since a value has to be there.
constexpr char NONE[] = "none";

std::vector<std::string> words(const std::string& list) {
    std::vector<std::string> each;
    for (std::size_t at = 0; list != NONE && at < list.size();) {
        const std::size_t end = std::min(list.find(' ', at), list.size());
        each.push_back(list.substr(at, end - at));
        at = end + 1;
    }
    return each;
}

// "SEQUENCE WRITER SHA256 ..."
std::vector<Written> allWrittenOf(const std::string& text) {
    const std::vector<std::string> each = words(text);
    constexpr std::size_t MEMBERS = 3;
    std::vector<Written> all;
    for (std::size_t at = 0; at + MEMBERS <= each.size(); at += MEMBERS) {
        Written written;
        std::from_chars(each[at].data(), each[at].data() + each[at].size(), written.sequence);
        written.writer = each[at + 1];
        written.sha256 = each[at + 2];
        all.push_back(std::move(written));
    }
    return all;
}

Written writtenOf(const std::string& text) {
    const std::vector<Written> all = allWrittenOf(text);
    return all.empty() ? Written() : all.front();
}

std::string textOf(const Written& written) {
    return written.writer.empty() ? NONE : fmt::format("{} {} {}", written.sequence, written.writer, written.sha256);
}

}  // namespace

std::string writerOf(const Identity& identity) {
    const std::string boot = tool::bootId();
    return identity.nonce + "." + (boot.empty() ? "unknown" : boot);
}

std::string nonceOf(const std::string& writer) {
    return writer.substr(0, writer.find('.'));
}

std::string randomDigits() {
    std::random_device source;
    std::string digits;
    for (int i = 0; i < 4; ++i) {
        digits += fmt::format("{:08x}", source());
    }
    return digits;
}

bool isEnrolled(const std::string& folder) {
    return std::filesystem::exists(fileIn(folder));
}

Identity readIdentity(const std::string& folder) {
    const std::string path = fileIn(folder);
    if (!isEnrolled(folder)) {
        throw tool::answer("missing", tool::EXIT_UNREADABLE, 0, path, "this machine is not enrolled",
                           "genreg-fleet enrol");
    }
    (void)tool::readFile(path, "read who this machine is");  // with its own words where that cannot be
    StateFile file(path);
    Identity identity;
    identity.id = file.text("id");
    identity.nonce = file.text("nonce");
    identity.tookOver = words(file.text("took-over"));
    identity.attempt = writtenOf(file.text("attempt"));
    identity.confirmed = writtenOf(file.text("confirmed"));
    identity.unanswered = allWrittenOf(file.text("unanswered"));
    if (!isHostId(identity.id) || !isHostId(identity.nonce)) {
        throw tool::answer("damaged", tool::EXIT_DAMAGED, 0, path, "this says not who the machine is",
                           "genreg-fleet enrol --anew");
    }
    return identity;
}

void writeIdentity(tool::Output& output, const std::string& folder, const Identity& identity) {
    tool::makeFolder(output, folder);
    const std::string path = fileIn(folder);
    if (!isEnrolled(folder)) {
        // Made for its owner alone before anything stands in it; every replacement keeps that.
        if (const int error = tool::makePrivateFile(path, folder)) {
            throw tool::systemFailure(error, path, "make it");
        }
    }
    StateFile file(path);
    file.answered(file.BeginBatch());
    file.set("id", identity.id);
    file.set("nonce", identity.nonce);
    std::string tookOver;
    for (const std::string& nonce : identity.tookOver) {
        tookOver += (tookOver.empty() ? "" : " ") + nonce;
    }
    file.set("took-over", tookOver.empty() ? NONE : tookOver);
    file.set("attempt", textOf(identity.attempt));
    file.set("confirmed", textOf(identity.confirmed));
    std::string unanswered;
    for (const Written& written : identity.unanswered) {
        unanswered += (unanswered.empty() ? "" : " ") + textOf(written);
    }
    file.set("unanswered", unanswered.empty() ? NONE : unanswered);
    const unsigned int code = file.CommitBatch();
    file.answered(code == REG_UNCHANGED ? 0 : code);
}

long runningPublisher(const std::string& folder) {
    return tool::classicLockOf(folder + LOCK_NAME).pid;
}

PublisherLock::PublisherLock(const std::string& folder) {
    const std::string path = folder + LOCK_NAME;
    constexpr mode_t PERMISSIONS = 0600;
    if (const int error = lock_.open(path.c_str(), PERMISSIONS)) {
        throw tool::systemFailure(error, path, "open it");
    }
    long holder = 0;
    const int error = lock_.take(&holder);
    if (error == EAGAIN) {
        throw tool::answer("locked", tool::EXIT_LOCKED, 0, path,
                           fmt::format("another publisher runs already, pid {}", holder),
                           "one is enough: genreg-fleet status");
    }
    if (error != 0) {
        throw tool::systemFailure(error, path, "lock it");
    }
}

}  // namespace fleet
