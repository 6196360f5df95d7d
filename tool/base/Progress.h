// How far a command is that takes more than a second: a line at the bottom of a terminal, told anew every now and then
// and gone when the work is done or something else is to be said. Nothing is written where standard error is no
// terminal, or the remarks are for programs or for nobody.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "base/Output.h"

namespace tool {

// Whether it is told at all. Called before the command runs; the second begins here.
void allowProgress(const Output& output);
// What takes the line away; empty where none is ever told.
[[nodiscard]] std::string_view progressEraser() noexcept;

// A piece of the work, while it lives: "reading the batch", of so many steps (0: nobody knows). Another one within is
// not told. Nothing is to be asked, and no result to be written, on the terminal meanwhile.
class Progress {
public:
    explicit Progress(const std::string& doing, std::size_t steps = 0);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // One more is done of the piece that is told, if there is one.
    static void step() noexcept;

private:
    bool told_;
};

}  // namespace tool
