// The rig of refusals: what its parts share. Bin and Global provoke what these areas refuse; Arguments, Streams, Calls
// and PlatformCalls what the others do, by what leads to it.
#pragma once

#include <genreg/genreg.h>
#include <osse/Errors.h>

#include <cstdio>
#include <functional>
#include <string>

#include "prove/standin/Platform.h"
#include "prove/standin/Schemas.h"
#include "prove/support/Aftermath.h"
#include "prove/support/Rig.h"
#include "prove/support/Stepper.h"

namespace prove {

// A line of the diagnostic log.
struct Point {
    const char* function;
    unsigned int probe;
    unsigned int code;
};

class Refusals {
public:
    explicit Refusals(Rig& rig);

    void controls();
    void nullArguments();
    void smallRecords();
    void information();
    void platform();
    void streams();
    void calls();
    void frames();
    void globalCalls();
    void changeLog();
    void batches();
    void cleanUps();

private:
    using Picks = std::function<bool(pid_t, const SystemCall&)>;

    // The calls of that number on an open file.
    [[nodiscard]] static Picks isOn(long number, const std::string& target);

    void lay(const std::string& bytes) const;
    [[nodiscard]] std::string path(const char* suffix) const { return file_ + suffix; }
    [[nodiscard]] std::string logged() const;

    // Whether the log got the line since it had that many bytes.
    [[nodiscard]] bool tells(const Point& point, std::size_t since) const;

    // Provokes it once, and expects that code.
    void expect(const Point& point, unsigned int answer, const std::function<unsigned int()>& provoke);
    void expect(const Point& point, const std::function<unsigned int()>& provoke) {
        expect(point, point.code, provoke);
    }

    // Refuses each call of the kind in turn, until the operation makes no further one: the point is told of once.
    void expectOnce(const Point& point, PlatformCall call, const std::function<unsigned int()>& provoke);

    // In a child, one of whose calls of the system fails: the first for which `picks` holds.
    void expectFailing(const Point& point, unsigned int answer, int error, const Picks& picks,
                       const std::function<unsigned int()>& provoke);

    // In a child, before whose calls of the system `sees` is asked; none of them fails.
    void expectWatched(const Point& point, unsigned int answer, const Picks& sees,
                       const std::function<unsigned int()>& provoke);

    // The code that a child's operation answered with; `entry` is asked before each of its calls.
    unsigned int inChild(const std::function<Verdict(pid_t, const SystemCall&)>& entry,
                         const std::function<unsigned int()>& provoke, int* exitCode);

    Rig& rig_;
    std::string file_;
    std::string log_;
    unsigned int* const shared_ = &sharedReport()->code;
};

// Puts a descriptor that cannot be read in place of the stream's.
void blind(std::FILE* stream);

inline GenRegVarValRecord pair(const char* variable, const char* value) {
    GenRegVarValRecord record = {};
    record.contains = VARVAL_HAS_PAIR;
    record.variable = const_cast<char*>(variable);
    record.value = const_cast<char*>(value);
    return record;
}

}  // namespace prove
