// What the store answers, in the words and statuses of a tool.
#include <fmt/core.h>

#include "base/Text.h"
#include "settings/Settings.h"

namespace fleet {
namespace {

struct Answer {
    std::string_view kind;
    int exitStatus;
    std::string_view message;
    std::string_view hint;
};

Answer answerTo(Trouble trouble) {
    switch (trouble) {
        case Trouble::UNREACHED:
            return {"unreached", tool::EXIT_LOCKED, "the store was not reached in time",
                    "look at the endpoints and the certificates, or a longer --wait"};
        case Trouble::DENIED:
            return {"denied", tool::EXIT_WRITE_FAILED, "the store does not let this identity do it",
                    "genreg-fleet setup --print shows the users and roles that it needs"};
        case Trouble::FULL:
            return {"store-full", tool::EXIT_WRITE_FAILED, "the store is full",
                    "compact and defragment it, then disarm its alarm: docs/fleet.md"};
        case Trouble::TOO_LARGE:
            return {"too-large", tool::EXIT_INVALID, "this is too large for the store", "look at what it is to hold"};
        case Trouble::COMPACTED:
        case Trouble::RESET:
            return {"changed", tool::EXIT_CONFLICT, "the store went on without what was asked for", "ask again"};
        case Trouble::REFUSED:
            break;
    }
    return {"refused", tool::EXIT_WRITE_FAILED, "the store refuses it", "look at the log of the store"};
}

}  // namespace

tool::Failure failureOf(const StoreFailure& failure) {
    const Answer answer = answerTo(failure.trouble);
    tool::Failure told;
    told.kind = answer.kind;
    told.exitStatus = answer.exitStatus;
    told.path = failure.endpoint;
    told.message = fmt::format("{}: {} ({})", failure.endpoint, answer.message, tool::printable(failure.message));
    told.hint = answer.hint;
    return told;
}

void askStore(const tool::Context& context, Store& store, const std::function<void()>& work) {
    try {
        store.patiently(context.options.waitSeconds, work);
    } catch (const StoreFailure& failure) {
        throw failureOf(failure);
    }
}

}  // namespace fleet
