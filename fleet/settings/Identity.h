// Who this machine is in the store, and what it wrote there last: kept in the state folder, in the file `host`.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/Command.h"
#include "system/System.h"

namespace fleet {

// What was written, or was to be.
struct Written {
    std::string writer;
    std::uint64_t sequence = 0;
    std::string sha256;

    bool operator==(const Written&) const = default;
};

struct Identity {
    std::string id;                     // made at enrolment; the name of the machine's certificate, too
    std::string nonce;                  // made with it, and again by who takes an id over
    std::vector<std::string> tookOver;  // nonces of those that it was taken from
    Written attempt;                    // the last one, noted before it is made
    Written confirmed;                  // the last that the store is known to have had
    // Attempts in front of the last one whose answer never came. A store that stands still may take such a call when it
    // goes on, after it was looked at and another attempt was made.
    std::vector<Written> unanswered;
};

// NONCE.BOOT: another one after the machine has started anew, where the system tells ("unknown" where it does not).
[[nodiscard]] std::string writerOf(const Identity& identity);
[[nodiscard]] std::string nonceOf(const std::string& writer);

// 128 bits from the system's source of them, as 32 hexadecimal digits.
[[nodiscard]] std::string randomDigits();

// Throws a Failure: missing (the machine is not enrolled), unreadable, damaged.
[[nodiscard]] Identity readIdentity(const std::string& folder);
[[nodiscard]] bool isEnrolled(const std::string& folder);
// In one commit, for the folder's owner alone. The folder is made where it is missing. Throws a Failure.
void writeIdentity(tool::Output& output, const std::string& folder, const Identity& identity);

// Held by who publishes from a state folder. A clone's folder has a lock of its own.
class PublisherLock {
public:
    // Throws a Failure (locked) that names who holds it.
    explicit PublisherLock(const std::string& folder);

private:
    tool::OwnClassicLock lock_;
};

// The process that publishes from the folder; 0: none.
[[nodiscard]] long runningPublisher(const std::string& folder);

}  // namespace fleet
