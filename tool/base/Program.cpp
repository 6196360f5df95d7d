#include "base/Program.h"

namespace tool {
namespace {

constexpr Program GENREG = {
    "genreg",
    "Reads and edits registry files, safely among several processes.",
    "Exit: 0 done or nothing to change, 1 not found or differs, 2 usage, 3 missing or unreadable, 4 locked,\n"
    "5 conflict, 6 invalid value, 7 damaged, 8 the update failed, 70 a defect of the tool.",
    "how long to wait for a lock (GENREG_WAIT, else 10; 0 fails at once)",
    "where FILE is optional, the global registry is meant",
};

const Program* current = &GENREG;

}  // namespace

const Program& program() noexcept {
    return *current;
}

void setProgram(const Program& program) noexcept {
    current = &program;
}

}  // namespace tool
