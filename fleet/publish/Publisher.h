// Keeps what is in the store equal to what it is offered, and this machine's key of life there. It never waits: it does
// what is due, one call after the other, and says when it wants to be called again. Losing the store changes nothing
// but what is due.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "publish/Export.h"
#include "publish/Ownership.h"
#include "settings/Identity.h"
#include "settings/Settings.h"
#include "store/Store.h"

namespace fleet {

enum class Standing {
    STARTING,
    PUBLISHED,
    TROUBLED,   // by the store, or what is to be noted cannot be: it is tried again
    CLASH,      // another machine goes by this id: nothing is written any more
    DISPLACED,  // another machine took this id over
};

class Publisher {
public:
    using Clock = std::chrono::steady_clock;
    // Keeps what is noted in front of every attempt. Throws a Failure, and then there is no attempt.
    using Note = std::function<void(const Identity& identity)>;
    // Is told of what users should hear of, once.
    using Teller = std::function<void(const std::string& kind, const std::string& message)>;

    Publisher(Store& store, const Settings& settings, Identity identity, Note note, Teller tell);

    // Writes in any case, under a new nonce, and is the only one from then on.
    void takeOver();
    // Without it the machine is never shown as alive.
    void stayAlive();
    // What is to be in the store.
    void offer(Exported exported);

    // When it wants to be called again.
    [[nodiscard]] Clock::time_point step(Clock::time_point now);
    // Takes the key of life away, as far as the store answers at once.
    void leave() noexcept;
    // From now on: after new settings everything is looked at anew.
    void use(Store& store, const Settings& settings);

    [[nodiscard]] Standing standing() const { return standing_; }
    // The failure that troubles it, and whether trying again may help.
    [[nodiscard]] const std::optional<tool::Failure>& trouble() const { return trouble_; }
    [[nodiscard]] bool mayRecover() const { return mayRecover_; }
    // Who else goes by this id.
    [[nodiscard]] const std::string& other() const { return other_; }
    [[nodiscard]] const Identity& identity() const { return identity_; }
    [[nodiscard]] bool wroteSomething() const { return wrote_; }
    // What was offered was larger than a value may be, and a short one says so in its place.
    [[nodiscard]] bool wasTooLarge() const { return tooLarge_; }
    [[nodiscard]] std::string words() const;

private:
    [[nodiscard]] bool isOver() const { return standing_ == Standing::CLASH || standing_ == Standing::DISPLACED; }
    void work(Clock::time_point now);
    void look(Clock::time_point now);
    void takeNonces();
    [[nodiscard]] bool isToBePut() const;
    void put();
    void live(Clock::time_point now);
    void keepLease(Clock::time_point now);
    bool putAlive(const std::vector<std::string>& clash);
    void yieldTo(const ClaimedValue& value);
    void clashWith(const std::string& other);
    void markClash(Clock::time_point now);
    void failed(const tool::Failure& failure, Clock::time_point now);
    void succeeded();
    [[nodiscard]] Clock::time_point due() const;
    [[nodiscard]] std::string otherWords() const;

    Store* store_;
    const Settings* settings_;
    Identity identity_;
    Note note_;
    Teller tell_;

    std::optional<HostContent> content_;
    bool tooLarge_ = false;
    bool takesOver_ = false;
    bool staysAlive_ = false;
    bool wrote_ = false;

    Standing standing_ = Standing::STARTING;
    std::optional<tool::Failure> trouble_;
    bool mayRecover_ = true;
    std::string other_;      // its writer
    std::string otherName_;  // of its machine, where that is known
    unsigned int failures_ = 0;
    Clock::time_point retryAt_{};

    bool looked_ = false;  // nothing happened since that would leave the following in doubt
    Clock::time_point lookAt_{};
    ClaimedValue value_;
    ClaimedAlive alive_;
    OwnLeases leases_;
    Clock::time_point renewAt_{};
};

}  // namespace fleet
