// The parts of the rig, each with a store of its own.
#pragma once

#include "prove/fleet_faults/Fleet.h"

namespace prove {

void checkOneServer(Cases& cases, Recoveries& recoveries);
void checkCluster(Cases& cases, Recoveries& recoveries);
void checkLostAnswers(Cases& cases, Recoveries& recoveries);
void checkTwoOfOneId(Cases& cases, Recoveries& recoveries);
void checkRights(Cases& cases, Recoveries& recoveries);
void checkTokens(Cases& cases, Recoveries& recoveries);
void checkSpace(Cases& cases, Recoveries& recoveries);
void checkManyHosts(Cases& cases, Recoveries& recoveries);
void checkCompaction(Cases& cases, Recoveries& recoveries);
void checkHostileValues(Cases& cases, Recoveries& recoveries);
void checkWriters(Cases& cases, Recoveries& recoveries);

}  // namespace prove
