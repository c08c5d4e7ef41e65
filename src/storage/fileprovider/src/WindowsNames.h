#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace storage::fileprovider {

/// The names of WorkingNames beside a file of Windows: those of a staging file, and of the journal of the
/// overwriting of the file with that index, which holds the new contents.
std::filesystem::path stagingBeside(const std::filesystem::path& target, unsigned slot);
std::filesystem::path journalBeside(const std::filesystem::path& target, std::uint64_t fileIndex);
/// The name of the whole new contents while they replace the file, which is missing for a moment.
std::filesystem::path replacementBeside(const std::filesystem::path& target);

/// The file in the state folder that stands for a name which no file has.
std::filesystem::path nameLockFor(const std::filesystem::path& stateFolder,
                                  const std::filesystem::path& target);

/// Whether a name, without its folder, is that of a working file beside a target.
bool isWorkingFile(const std::wstring& name);

/// Order of names and paths as the system has it: unit by unit, each as its capital letter. Negative, zero or
/// positive as `a` comes before, equals or comes after `b`.
int compareNames(std::u16string_view a, std::u16string_view b);

} // namespace storage::fileprovider
