#pragma once

namespace apps::kxvfs {

/// Makes the arguments of main UTF-8 where the system hands them over otherwise, and standard input and
/// output streams of bytes. First of all in main; what the arguments are made to point to lives as long as
/// the process.
void prepareArguments(int& count, char**& arguments);

/// Archives hold times without a zone. Reading and writing them as UTC keeps those of untouched entries.
void useUtc();

} // namespace apps::kxvfs
