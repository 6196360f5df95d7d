// Keeps the store up to date with this machine's registries: once, or as a service.
#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <thread>

#include "base/LockPatience.h"
#include "base/Text.h"
#include "publish/PublishCommands.h"
#include "publish/Publisher.h"
#include "system/ServiceManager.h"
#include "system/System.h"

namespace fleet {
namespace {

using Clock = Publisher::Clock;

constexpr std::chrono::seconds QUIET(1);          // after a change, before the registries are read
constexpr std::chrono::seconds LONGEST_QUIET(5);  // where changes do not cease
constexpr std::chrono::seconds MEND(1);           // how often a folder that went away is looked for
constexpr double READ_PATIENCE = 2;               // seconds: for a registry that somebody has locked

struct Words {
    bool once = false;
    bool takeOver = false;
};

// The registries, and what they lead to where they are links.
std::vector<std::string> placesOf(const std::vector<std::string>& paths) {
    std::vector<std::string> places = paths;
    for (const std::string& path : paths) {
        std::error_code error;
        const std::string real = std::filesystem::weakly_canonical(path, error);
        if (!error && real != path) {
            places.push_back(real);
        }
    }
    return places;
}

int millisecondsUntil(Clock::time_point at, Clock::time_point now) {
    constexpr long LONGEST = 60L * 60 * 1000;
    const long left = std::chrono::duration_cast<std::chrono::milliseconds>(at - now).count() + 1;
    return static_cast<int>(std::clamp(left, 0L, LONGEST));
}

// How long the service manager waits for a word before it takes the process for hung.
std::optional<Clock::duration> watchdog() {
    const char* const text = std::getenv("WATCHDOG_USEC");
    const long long microseconds = text != nullptr ? std::atoll(text) : 0;
    return microseconds > 0 ? std::optional<Clock::duration>(std::chrono::microseconds(microseconds)) : std::nullopt;
}

// All that comes of the settings, and is made anew with them.
struct Surroundings {
    Surroundings(tool::Context& context, Settings read)
        : settings(std::move(read)), store(settings.access), exporter(context, settings) {}

    Settings settings;
    Store store;
    Exporter exporter;
    tool::FileNews news;
};

// In front of its lock, which a folder that is missing has no place for.
const Settings& enrolled(const Settings& settings) {
    (void)readIdentity(settings.stateFolder);
    return settings;
}

class Service {
public:
    Service(tool::Context& context, const Words& words)
        : context_(context),
          now_(std::make_unique<Surroundings>(context, readSettings(context))),
          lock_(enrolled(now_->settings).stateFolder),
          publisher_(
              now_->store, now_->settings, readIdentity(now_->settings.stateFolder),
              [this](const Identity& identity) {
                  writeIdentity(context_.output, now_->settings.stateFolder, identity);
              },
              [this, &words](const std::string& kind, const std::string& message) {
                  // Of one attempt the answer tells the rest.
                  if (!words.once || kind == "damaged-value" || kind == "too-large") {
                      context_.output.note(kind, now_->settings.path, message);
                  }
              }) {
        if (words.takeOver) {
            publisher_.takeOver();
        }
    }

    void once() {
        publisher_.offer(now_->exporter.read());
        const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                            std::chrono::duration<double>(context_.options.waitSeconds));
        for (unsigned int attempts = 1;; ++attempts) {
            const Clock::time_point next = publisher_.step(Clock::now());
            const bool tried = attempts >= now_->settings.access.endpoints.size() + 1;
            if (isAnswered() || (tried && (next > end || isFinal()))) {
                return;
            }
            std::this_thread::sleep_until(next);
        }
    }

    void run() {
        tool::WatchSignals signals(true);
        context_.options.waitSeconds = std::min(context_.options.waitSeconds, READ_PATIENCE);
        tool::setPatience(context_);
        watch();
        publisher_.stayAlive();
        Clock::time_point next{};
        while (!signals.endAsked()) {
            Clock::time_point now = Clock::now();
            if (now >= exportAt_) {
                read(now);
            }
            next = publisher_.step(now);
            tellManager();
            now = Clock::now();
            wait(signals, std::min({next, exportAt_, mended_ ? Clock::time_point::max() : now + MEND}), now);
            if (signals.takeLook()) {
                reload();
            }
        }
        tool::tellServiceManager("STOPPING=1");
        publisher_.leave();
    }

    [[nodiscard]] const Publisher& publisher() const { return publisher_; }

private:
    [[nodiscard]] bool isAnswered() const {
        return publisher_.standing() == Standing::PUBLISHED || publisher_.standing() == Standing::CLASH ||
               publisher_.standing() == Standing::DISPLACED;
    }
    // Trying again would be of no use.
    [[nodiscard]] bool isFinal() const { return publisher_.trouble() && !publisher_.mayRecover(); }

    // The news first, so that nothing falls between them and the reading.
    void watch() {
        std::string folder;
        if (now_->news.watch(placesOf(now_->exporter.paths()), &folder) != 0) {
            // It is not there yet, or not to be looked into: what is compared now and then finds what changed.
            context_.output.note("unwatched", folder, "the folder cannot be watched; it is looked at now and then");
            mended_ = false;
        }
        exportAt_ = {};
    }

    void read(Clock::time_point now) {
        Exported exported = now_->exporter.read();
        changedAt_.reset();
        const auto every = std::chrono::seconds(now_->settings.compareSeconds);
        exportAt_ = now + (exported.postponed ? Clock::duration(LONGEST_QUIET) : Clock::duration(every));
        for (const RegistryError& error : exported.errors) {
            if (std::ranges::find(told_, error.message) == told_.end()) {
                context_.output.note(error.kind, error.path, error.message);
            }
        }
        told_.clear();
        for (const RegistryError& error : exported.errors) {
            told_.push_back(error.message);
        }
        publisher_.offer(std::move(exported));
    }

    void wait(const tool::WatchSignals& signals, Clock::time_point until, Clock::time_point now) {
        if (const auto limit = watchdog()) {
            until = std::min(until, now + *limit / 2);
        }
        (void)now_->news.wait(signals, -1, millisecondsUntil(until, now));
        const bool concerned = now_->news.take();
        const bool wasMended = mended_;
        mended_ = now_->news.mend();
        if (concerned || (mended_ && !wasMended)) {
            const Clock::time_point seen = Clock::now();
            changedAt_ = changedAt_.value_or(seen);
            exportAt_ = std::min(seen + QUIET, *changedAt_ + LONGEST_QUIET);
        }
    }

    void reload() {
        tool::tellServiceManager(fmt::format("RELOADING=1\nMONOTONIC_USEC={}", tool::monotonicMicroseconds()));
        try {
            auto anew = std::make_unique<Surroundings>(context_, readSettings(context_));
            if (anew->settings.stateFolder != now_->settings.stateFolder) {
                context_.output.note("unchanged", anew->settings.path, "another state folder wants a new start");
                anew->settings.stateFolder = now_->settings.stateFolder;
            }
            publisher_.use(anew->store, anew->settings);
            now_ = std::move(anew);
            watch();
        } catch (const tool::Failure& failure) {
            context_.output.report(failure);
            context_.output.note("unchanged", now_->settings.path, "the settings from before stand");
        }
        said_.clear();
    }

    void tellManager() {
        if (!tool::hasServiceManager()) {
            return;
        }
        if (watchdog()) {
            tool::tellServiceManager("WATCHDOG=1");
        }
        const std::string state = "READY=1\nSTATUS=" + publisher_.words();
        if (state != said_) {
            tool::tellServiceManager(state);
            said_ = state;
        }
    }

    tool::Context& context_;
    std::unique_ptr<Surroundings> now_;
    PublisherLock lock_;
    Publisher publisher_;
    std::optional<Clock::time_point> changedAt_;
    Clock::time_point exportAt_{};
    bool mended_ = true;
    std::string said_;
    std::vector<std::string> told_;
};

tool::Failure clashFailure(const Publisher& publisher) {
    tool::Failure failure;
    failure.kind = publisher.standing() == Standing::CLASH ? "clash" : "displaced";
    failure.exitStatus = tool::EXIT_CONFLICT;
    failure.message = fmt::format("nothing is published: {}", publisher.words());
    failure.hint =
        "on a clone: genreg-fleet enrol --anew; on the machine whose id it is: genreg-fleet publish --take-over";
    return failure;
}

// Of one attempt, as its answer is told.
int answer(tool::Context& context, const Publisher& publisher) {
    if (publisher.standing() == Standing::CLASH || publisher.standing() == Standing::DISPLACED) {
        throw clashFailure(publisher);
    }
    if (publisher.standing() != Standing::PUBLISHED) {
        if (publisher.trouble()) {
            throw *publisher.trouble();
        }
        throw failureOf(StoreFailure());
    }
    const Written& written = publisher.identity().attempt;
    if (context.output.style.json) {
        context.output.json({{"operation", context.operation},
                             {"id", publisher.identity().id},
                             {"writer", written.writer},
                             {"sequence", written.sequence},
                             {"sha256", written.sha256},
                             {"changed", publisher.wroteSomething()}});
    } else {
        context.output.line(publisher.words());
    }
    if (!publisher.wroteSomething()) {
        context.output.note("unchanged", publisher.identity().id, "the store says so already");
    }
    return publisher.wasTooLarge() ? tool::EXIT_INVALID : tool::EXIT_DONE;
}

int publish(tool::Context& context, const Words& words) {
    Service service(context, words);
    if (words.once) {
        service.once();
        return answer(context, service.publisher());
    }
    service.run();
    return tool::EXIT_DONE;
}

}  // namespace

std::span<const tool::Command> publishCommands() {
    static constexpr tool::Command COMMANDS[] = {
        {"publish", "mirror this machine's registries into the store, now and whenever they change", tool::USES_CONFIG,
         [](tool::Parser& parser) -> tool::Action {
             auto words = std::make_shared<Words>();
             parser.flag("--once", words->once, "as they are now, and end");
             parser.flag("--take-over", words->takeOver, "be the one machine of this id from now on");
             parser.footer(
                 "Runs until SIGTERM; SIGHUP reads the settings and the certificates anew. It exits 5 with --once "
                 "where\n"
                 "another machine goes by the same id, and 6 where there is more than a value may hold.");
             return [words](tool::Context& context) { return publish(context, *words); };
         }},
    };
    return COMMANDS;
}

}  // namespace fleet
