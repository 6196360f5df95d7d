// What `status` tells about a binary registry and about the surroundings of the global one.
#pragma once

#include <string>

#include "base/Output.h"
#include "records/Salvage.h"

namespace tool {

// "frames", a count for each type, "other" for frames of a type that there is not, "damaged".
[[nodiscard]] Json recordsObject(const SalvagedRegistry& registry);
// "frames", "binvar" for the sound ones, "damaged".
[[nodiscard]] Json variablesObject(const SalvagedRegistry& registry);
[[nodiscard]] std::string recordsText(const Json& records);

// The member "size": "1 byte".
[[nodiscard]] std::string sizeText(const Json& object);

// The process that is told of changes: whether its lock file is there, and who holds it.
[[nodiscard]] Json monitorObject();
[[nodiscard]] std::string monitorText(const Json& monitor);

// The opt-in log of changes.
[[nodiscard]] Json changeLogObject();
[[nodiscard]] std::string changeLogText(const Json& log);

}  // namespace tool
