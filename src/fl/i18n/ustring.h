#pragma once

#include <string>
#include <string_view>

namespace fl::i18n {

/// The platform's wide string: UTF-16 code units on every system. `wchar_t` differs in size between systems.
/// A string may hold unpaired surrogates; only converting it out replaces them.
using ustring = std::u16string;
using ustring_view = std::u16string_view;

} // namespace fl::i18n
