#include "prove/fleet_faults/Sides.h"

#include <deque>
#include <sstream>

#include "prove/fleet_faults/Fleet.h"
#include "tests/support/BuiltTool.h"

namespace prove {
namespace {

struct Side {
    std::string option;
    std::unique_ptr<Background> process;
};

// What a part said, and its last line.
void take(Cases& cases, Recoveries& recoveries, Side& side) {
    bool counted = false;
    unsigned long failed = 0;
    std::istringstream lines(side.process->log());
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string first;
        std::string name;
        unsigned long number = 0;
        if (words >> first >> name >> number >> failed && first == "RIG") {
            cases.add(number, failed);
            counted = true;
        } else if (!recoveries.take(line)) {
            cases.note(line.substr(line.find(": ") + 2));
        }
    }
    const int status = side.process->ended().value_or(-1);
    (void)cases.check(counted && (status == 0 || failed > 0), side.option + " ended with " + std::to_string(status));
}

}  // namespace

void runSideBySide(Cases& cases, Recoveries& recoveries, const std::vector<std::string>& options, std::size_t most) {
    const Folder folder(false);
    const std::string program = this_system::program();
    std::deque<std::string> waiting(options.begin(), options.end());
    std::vector<Side> running;
    while (!waiting.empty() || !running.empty()) {
        while (!waiting.empty() && running.size() < most) {
            const std::string option = waiting.front();
            waiting.pop_front();
            Words words = {option, "--part"};
            if (cases.quick()) {
                words.emplace_back("--quick");
            }
            running.push_back({option, std::make_unique<Background>(program, words, folder.file(option))});
        }
        pause(0.1);
        std::erase_if(running, [&](Side& side) {
            const bool ended = side.process->ended().has_value();
            if (ended) {
                take(cases, recoveries, side);
            }
            return ended;
        });
    }
}

}  // namespace prove
