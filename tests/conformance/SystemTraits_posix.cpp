#include "SystemTraits.h"

namespace kx::test {

void setSystemTraits(ProviderTraits& /*traits*/) {}

} // namespace kx::test
