#include "publish/Publisher.h"

#include <fmt/chrono.h>
#include <fmt/core.h>

#include <algorithm>
#include <ctime>
#include <random>
#include <utility>

#include "base/Text.h"
#include "mirror/Keys.h"

namespace fleet {
namespace {

using Clock = Publisher::Clock;

// So that a thousand machines which were started together do not go on to ask together.
Clock::duration spread(double seconds) {
    constexpr double LEAST = 0.85;
    constexpr double MOST = 1.15;
    thread_local std::minstd_rand random{std::random_device()()};
    const std::chrono::duration<double> time(seconds * std::uniform_real_distribution(LEAST, MOST)(random));
    return std::chrono::duration_cast<Clock::duration>(time);
}

std::string timeNow() {
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::time(nullptr)));
}

std::optional<StoredValue> take(std::vector<StoredValue>& found, const std::string& key) {
    const auto at = std::ranges::find(found, key, &StoredValue::key);
    return at == found.end() ? std::nullopt : std::optional(std::move(*at));
}

void putOnce(std::vector<std::string>& list, const std::string& nonce, const std::string& own) {
    if (isHostId(nonce) && nonce != own && std::ranges::find(list, nonce) == list.end()) {
        list.push_back(nonce);
    }
}

// The last attempt, in front of another one, where its answer never came.
void putBehind(Identity& identity) {
    constexpr std::size_t MOST = 10;  // as many as a line of the state folder has room for
    if (identity.attempt.writer.empty() || identity.attempt == identity.confirmed) {
        return;
    }
    identity.unanswered.push_back(identity.attempt);
    if (identity.unanswered.size() > MOST) {
        identity.unanswered.erase(identity.unanswered.begin());
    }
}

}  // namespace

Publisher::Publisher(Store& store, const Settings& settings, Identity identity, Note note, Teller tell)
    : store_(&store),
      settings_(&settings),
      identity_(std::move(identity)),
      note_(std::move(note)),
      tell_(std::move(tell)) {}

void Publisher::takeOver() {
    takesOver_ = true;
    identity_.tookOver.push_back(identity_.nonce);
    identity_.nonce = randomDigits();
}

void Publisher::stayAlive() {
    staysAlive_ = true;
}

void Publisher::offer(Exported exported) {
    HostValue head;
    head.id = identity_.id;
    head.writer = writerOf(identity_);
    head.hostName = settings_->hostName;
    const std::size_t size = encode(head, exported.content).size();
    constexpr std::size_t LONGEST_REST = 1024;  // of what may still be added to the head
    const std::size_t unpacked = exported.content.text.size();
    const bool tooLarge = size + LONGEST_REST > MOST_STORED || unpacked + LONGEST_REST > MOST_UNPACKED;
    if (tooLarge) {
        const std::string message =
            fmt::format("what this machine has is {} bytes, {} as stored: more than a value may be", unpacked, size);
        const std::string path = exported.registries.empty() ? "-" : exported.registries.front().path;
        exported.content = contentOf({{path, "too-large", message}}, {});
        if (!tooLarge_) {
            tell_("too-large", message);
        }
    }
    tooLarge_ = tooLarge;
    content_ = std::move(exported.content);
}

Clock::time_point Publisher::step(Clock::time_point now) {
    if (!content_ || now < retryAt_) {
        return retryAt_;
    }
    try {
        work(now);
        succeeded();
    } catch (const StoreFailure& failure) {
        mayRecover_ = failure.trouble == Trouble::UNREACHED;
        failed(failureOf(failure), now);
    } catch (const tool::Failure& failure) {
        mayRecover_ = false;
        failed(failure, now);
    }
    return std::max(due(), retryAt_);
}

Clock::time_point Publisher::due() const {
    if (!looked_) {
        return retryAt_;
    }
    return staysAlive_ || isOver() ? std::min(lookAt_, renewAt_) : lookAt_;
}

void Publisher::work(Clock::time_point now) {
    if (!looked_ || now >= lookAt_) {
        look(now);
    }
    if (isOver()) {
        markClash(now);
        return;
    }
    if (isToBePut()) {
        put();
    }
    if (looked_ && !isOver() && staysAlive_ && now >= renewAt_) {
        live(now);
    }
}

void Publisher::look(Clock::time_point now) {
    const std::string registries = registryKey(settings_->prefix, identity_.id);
    const std::string alive = aliveKey(settings_->prefix, identity_.id);
    std::vector<StoredValue> found;
    (void)store_->get({registries, alive}, found);
    value_ = claimOn(take(found, registries), identity_);
    alive_ = claimOnAlive(take(found, alive), identity_, leases_);
    looked_ = true;
    lookAt_ = now + spread(isOver() ? settings_->leaseSeconds / 3.0 : settings_->compareSeconds);
    if (!value_.trouble.empty()) {
        tell_("damaged-value", value_.trouble + "; it is written anew");
    }
    if (takesOver_) {
        takeNonces();
    } else if (value_.claim == Claim::DISPLACED || value_.claim == Claim::CLASH) {
        yieldTo(value_);
    } else if (alive_.claim == Claim::CLASH) {
        clashWith(alive_.writer);
    }
}

// Of all who may still believe that the id is theirs.
void Publisher::takeNonces() {
    putOnce(identity_.tookOver, nonceOf(value_.written.writer), identity_.nonce);
    putOnce(identity_.tookOver, nonceOf(alive_.writer), identity_.nonce);
    for (const std::string& writer : alive_.claimants) {
        putOnce(identity_.tookOver, nonceOf(writer), identity_.nonce);
    }
}

bool Publisher::isToBePut() const {
    return value_.revision == 0 || !value_.trouble.empty() || value_.written.sha256 != content_->sha256 ||
           value_.written.writer != writerOf(identity_);
}

void Publisher::put() {
    const std::uint64_t known = std::max(identity_.attempt.sequence, identity_.confirmed.sequence);
    if (value_.written.sequence >= identity_.confirmed.sequence) {
        identity_.confirmed = value_.written;
    }
    const Written next{writerOf(identity_), std::max(known, value_.written.sequence) + 1, content_->sha256};
    putBehind(identity_);
    identity_.attempt = next;
    note_(identity_);
    HostValue value;
    value.id = identity_.id;
    value.writer = identity_.attempt.writer;
    value.sequence = identity_.attempt.sequence;
    value.hostName = settings_->hostName;
    value.time = timeNow();
    value.tookOver = identity_.tookOver;
    const std::string key = registryKey(settings_->prefix, identity_.id);
    const Store::Exchange exchange = store_->exchange(key, value_.revision, encode(value, *content_));
    if (!exchange.done) {
        looked_ = false;  // who came before is looked at in the next step
        return;
    }
    wrote_ = true;
    identity_.confirmed = identity_.attempt;
    identity_.unanswered.clear();  // the key is at another revision than they expect
    value_ = {Claim::OWN, exchange.revision, identity_.attempt, value.hostName, value.time, {}};
    takesOver_ = takesOver_ && staysAlive_;
}

// Its first time puts the key of life; later ones look whether it is there still, and nobody else's.
void Publisher::live(Clock::time_point now) {
    keepLease(now);
    std::vector<StoredValue> found;
    const std::string key = aliveKey(settings_->prefix, identity_.id);
    (void)store_->get({key}, found);
    alive_ = claimOnAlive(take(found, key), identity_, leases_);
    if (takesOver_) {
        takeNonces();
    } else if (alive_.claim == Claim::CLASH) {
        clashWith(alive_.writer);
        renewAt_ = now;
        return;
    }
    if (alive_.claim != Claim::OWN && putAlive({})) {
        takesOver_ = false;
    }
}

void Publisher::keepLease(Clock::time_point now) {
    if (leases_.now != 0 && store_->renew(leases_.now) == 0) {
        // It ran out while the store was not reached, or is unknown to a store that was wiped: what else is gone?
        leases_.now = 0;
        looked_ = false;
    }
    if (leases_.now == 0) {
        leases_.now = store_->grant(settings_->leaseSeconds).id;
    }
    renewAt_ = now + spread(settings_->leaseSeconds / 3.0);
}

bool Publisher::putAlive(const std::vector<std::string>& clash) {
    const std::string key = aliveKey(settings_->prefix, identity_.id);
    const AliveValue value{writerOf(identity_), timeNow(), clash};
    const Store::Exchange exchange = store_->exchange(key, alive_.revision, encode(value), leases_.now);
    looked_ = looked_ && exchange.done;
    if (exchange.done) {
        leases_.held = leases_.now;
        alive_ = {Claim::OWN, exchange.revision, value.writer, clash};
    }
    return exchange.done;
}

void Publisher::yieldTo(const ClaimedValue& value) {
    if (value.claim == Claim::CLASH) {
        otherName_ = value.hostName;
        clashWith(value.written.writer);
        return;
    }
    const bool isNews = standing_ != Standing::DISPLACED;
    standing_ = Standing::DISPLACED;
    other_ = value.written.writer;
    otherName_ = value.hostName;
    if (isNews) {
        tell_("displaced", words() + "; this one publishes no more");
    }
}

void Publisher::clashWith(const std::string& other) {
    if (standing_ == Standing::CLASH) {
        return;
    }
    standing_ = Standing::CLASH;
    other_ = other;
    renewAt_ = {};
    tell_("clash", words() + "; this one publishes no more");
}

// For viewers, as long as this process runs and nobody has taken the id over.
void Publisher::markClash(Clock::time_point now) {
    if (standing_ == Standing::DISPLACED) {
        if (leases_.now != 0) {
            store_->revoke(std::exchange(leases_.now, 0));
        }
        renewAt_ = lookAt_;
        return;
    }
    if (!staysAlive_ || now < renewAt_) {
        renewAt_ = staysAlive_ ? renewAt_ : lookAt_;
        return;
    }
    keepLease(now);
    lookAt_ = renewAt_;
    if (!alive_.isMarked()) {
        (void)putAlive({writerOf(identity_), other_});
    }
}

void Publisher::failed(const tool::Failure& failure, Clock::time_point now) {
    const auto endpoints = static_cast<unsigned int>(settings_->access.endpoints.size());
    looked_ = false;
    ++failures_;
    // At once at the next endpoint, as long as there is one that was not asked.
    retryAt_ = failures_ < endpoints ? now
                                     : now + std::chrono::duration_cast<Clock::duration>(
                                                 std::chrono::duration<double>(jitter(failures_ - endpoints)));
    if ((!trouble_ || trouble_->kind != failure.kind) && failures_ >= endpoints) {
        tell_(failure.kind, failure.message + (isOver() ? "" : "; it is tried again"));
        trouble_ = failure;
    }
    standing_ = isOver() || failures_ < endpoints ? standing_ : Standing::TROUBLED;
}

void Publisher::succeeded() {
    if (!looked_) {
        return;
    }
    failures_ = 0;
    if (trouble_) {
        tell_("reached", fmt::format("{}: all is well again", store_->endpoint()));
        trouble_.reset();
    }
    standing_ = isOver() ? standing_ : Standing::PUBLISHED;
}

void Publisher::leave() noexcept {
    try {
        if (leases_.now != 0) {
            store_->revoke(leases_.now);
        }
    } catch (const StoreFailure&) {
        return;  // it runs out by itself
    }
    leases_ = {};
}

void Publisher::use(Store& store, const Settings& settings) {
    store_ = &store;
    settings_ = &settings;
    looked_ = false;
    retryAt_ = {};
}

std::string Publisher::otherWords() const {
    const std::string writer = writerWords(other_);
    return otherName_.empty() ? writer : fmt::format("{} ({})", tool::printable(otherName_), writer);
}

std::string Publisher::words() const {
    switch (standing_) {
        case Standing::STARTING:
            return "nothing is published yet";
        case Standing::TROUBLED:
            return trouble_ ? trouble_->message : "the store was not reached";
        case Standing::CLASH:
            return fmt::format("another machine, {}, goes by the id {}, too", otherWords(), identity_.id);
        case Standing::DISPLACED:
            return fmt::format("another machine, {}, took the id {} over", otherWords(), identity_.id);
        case Standing::PUBLISHED:
            break;
    }
    return fmt::format("published as number {} at {}", value_.written.sequence, store_->endpoint());
}

}  // namespace fleet
