// Registries with a vice each, as controls: what a rig that tries every scenario must find fault with.
#pragma once

#include "Scenarios.h"

namespace prove {

enum class Vice {
    InPlace,          // writes the registry where it stands, in two pieces
    Boasts,           // tells of success whatever became of it
    Denies,           // tells of failure whatever became of it
    Litters,          // leaves a file that nobody asked for
    SkipsLock,        // makes and removes a copy of its own without the lock
    KeepsLock,        // takes the lock once more and keeps it
    Descriptor,       // keeps a descriptor until it is gone ...
    DescriptorAtEnd,  // ... or for good
    Memory,           // leaves a piece of memory behind
    MisreadsRows,     // reads other values than stand there
    FailsAgain,       // refuses the second operation
    WrongAgain,       // does something else in the second operation
    WrongCause,       // makes another call fail behind the one that did
};

// An add to a text registry of a few rows, commits deferred, by an object with that vice; or a look-up there. One vice
// is in use at a time.
Scenario carelessUpdate(Vice vice);
Scenario carelessReading(Vice vice);

}  // namespace prove
