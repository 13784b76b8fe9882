#pragma once

#include <string>

namespace Norvane {

// A random (version 4) UUID in lower-case 8-4-4-4-12 form; empty when no
// randomness could be read.
std::string GenerateUuid();

}  // namespace Norvane
