// What is wrong inside a registry file.
#pragma once

#include "inspect/CheckedFile.h"
#include "inspect/Finding.h"

namespace tool {

// `deep`: records or lines against each other, and each as an update would write it again. Throws a Failure where a
// file of lines cannot be read any more.
void checkContent(Findings& findings, const CheckedFile& file, bool deep);

// "3 records", "7 lines of the form services".
[[nodiscard]] std::string contentText(const CheckedFile& file);

}  // namespace tool
