#pragma once

#include "ProviderConformance.h"

namespace kx::test {

/// What the system says of its files. One file per system.
void setSystemTraits(ProviderTraits& traits);

} // namespace kx::test
