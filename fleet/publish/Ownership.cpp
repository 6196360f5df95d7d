#include "publish/Ownership.h"

#include <algorithm>

namespace fleet {
namespace {

bool isIn(const std::vector<std::string>& list, const std::string& word) {
    return std::ranges::find(list, word) != list.end();
}

// A clone has the nonce, too; but what it writes goes on from what was in the store, and is neither what this machine
// has put there nor what it was about to.
Claim claimOf(const HostValue& value, const Written& written, const Identity& identity) {
    const std::string nonce = nonceOf(value.writer);
    if (isIn(value.tookOver, identity.nonce)) {
        return Claim::DISPLACED;
    }
    if (written == identity.attempt) {
        return Claim::OWN;
    }
    const bool setBack = nonce == identity.nonce && value.sequence < identity.confirmed.sequence;
    const bool cameLate = std::ranges::find(identity.unanswered, written) != identity.unanswered.end();
    return setBack || cameLate || written == identity.confirmed || isIn(identity.tookOver, nonce) ? Claim::STALE
                                                                                                  : Claim::CLASH;
}

// Whether everybody that it speaks of is this machine, or one whose id was taken over. A clash is between two of the
// same nonce, too.
bool isSettled(const ClaimedAlive& claimed, const Identity& identity) {
    const auto wasTaken = [&](const std::string& writer) { return isIn(identity.tookOver, nonceOf(writer)); };
    return claimed.isMarked() ? std::ranges::all_of(claimed.claimants, wasTaken)
                              : nonceOf(claimed.writer) == identity.nonce || wasTaken(claimed.writer);
}

}  // namespace

ClaimedValue claimOn(const std::optional<StoredValue>& found, const Identity& identity) {
    ClaimedValue claimed;
    if (!found) {
        return claimed;
    }
    claimed.revision = found->modRevision;
    try {
        const HostValue value = decode(found->value, identity.id);
        claimed.written = {value.writer, value.sequence, value.sha256};
        claimed.hostName = value.hostName;
        claimed.time = value.time;
        claimed.claim = claimOf(value, claimed.written, identity);
    } catch (const tool::Failure& failure) {
        claimed.claim = Claim::STALE;
        claimed.trouble = failure.message;
    }
    return claimed;
}

ClaimedAlive claimOnAlive(const std::optional<StoredValue>& found, const Identity& identity, const OwnLeases& leases) {
    ClaimedAlive claimed;
    if (!found) {
        return claimed;
    }
    claimed.revision = found->modRevision;
    claimed.claim = Claim::STALE;
    try {
        const AliveValue value = decodeAlive(found->value);
        claimed.writer = value.writer;
        claimed.claimants = value.clash;
    } catch (const tool::Failure&) {
        return claimed;
    }
    const bool replaced = leases.held != 0 && found->lease != leases.held;  // what this process had put there
    if (leases.now != 0 && found->lease == leases.now) {
        claimed.claim = Claim::OWN;
    } else if (replaced || !isSettled(claimed, identity)) {
        claimed.claim = Claim::CLASH;
    }
    return claimed;
}

}  // namespace fleet
