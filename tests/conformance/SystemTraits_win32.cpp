#include "SystemTraits.h"

namespace kx::test {

void setSystemTraits(ProviderTraits& traits) {
    traits.notInNames = u"\"*:<>?\\|";
    traits.removesFoldersOfOpenFiles = false;
}

} // namespace kx::test
