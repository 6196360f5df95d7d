// Refusals: the failure points that no failing call of the system leads to. A client hands in what it must not, a
// platform library refuses what the one that comes with this library never does, a descriptor or a file is changed
// behind an object's back. Each is provoked, and the code that comes back and the line of the diagnostic log (function,
// probe, code) are held against what is expected.
//
// And memory that cannot be given back, at each time that an update or a look-up gives some back: what was done stands,
// whatever is answered.
#include <algorithm>
#include <iterator>

#include "refusals/Refusals.h"
#include "support/Place.h"

namespace prove {

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
    for (const auto& list : {updates(), readings()}) {
        for (const Scenario& scenario : list) {
            // A batch is given up where one of its updates answers so, whether it was made or not.
            if (scenario.large || !scenario.operation.parts.empty() || !rig_.wants(scenario.name)) {
                continue;
            }
            const Place place(rig_.scratch() + "/place", scenario);
            for (long n = 0;; ++n) {
                place.layOut();
                const auto registry = scenario.schema->open(place.named(), scenario.features);
                rig_.begin(scenario.name + ", memory given back for the " + std::to_string(n) + "th time");
                const Refusal refusal(PlatformCall::Free, n);
                const unsigned int rc = scenario.operation.perform(*registry);
                const State state = stateOf(place, scenario);
                // The information functions have codes of their own, and their schema needs memory to pack a record.
                const bool stands = state == State::New || (!scenario.schema->choosesFeatures && rc != 0 &&
                                                            (state == State::Old || state == State::Empty));
                rig_.check(isTold(rc) || !scenario.schema->choosesFeatures, "answers " + codeText(rc));
                rig_.check(stands, std::string("the registry is ") + stateText(state));
                if (refusal.calls() <= n) {
                    break;
                }
            }
        }
    }
}

}  // namespace prove

int main(int argc, char** argv) {
    prove::Rig rig{"refusals", argc, argv};
    rig.expectAtLeast(850, 850);
    prove::Refusals refusals(rig);
    refusals.controls();
    refusals.nullArguments();
    refusals.smallRecords();
    refusals.information();
    refusals.platform();
    refusals.streams();
    refusals.frames();
    refusals.calls();
    refusals.globalCalls();
    refusals.changeLog();
    refusals.batches();
    refusals.cleanUps();
    return rig.finish();
}
