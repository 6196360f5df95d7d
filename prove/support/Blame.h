// What an operation must blame when one of its system calls fails: the first failure that it keeps (genregLastCause)
// names the step that the call is part of, and the system's error behind it.
#pragma once

#include <genreg/Cause.h>
#include <sys/types.h>

#include <set>
#include <string>

#include "Place.h"
#include "Rig.h"
#include "Stepper.h"

namespace prove {

// What a system call is about.
enum class Subject { Registry, Copy, SetAside, Backup, Lock, Directory, Other };

// With the child stopped at the call.
Subject subjectOf(pid_t child, const SystemCall& call, const Place& place);

// Holds the cause of an operation that failed, because of calls of one name, against the list of what may be blamed.
void judgeBlame(Rig& rig, const std::set<Subject>& subjects, const std::string& call, int error,
                const GenRegCause& cause);

}  // namespace prove
