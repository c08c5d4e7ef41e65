#pragma once

// Names of POSIX that the suite uses and the C library of Windows lacks; read before every source of a test
// for Windows. Headers that are missing as a whole stand in the folder posix.

#include <cstdlib>
#include <ctime>

/// As POSIX has it; a path's own c_str() is taken too.
int setenv(const char* name, const char* value, int overwrite);
int setenv(const char* name, const wchar_t* value, int overwrite);
int unsetenv(const char* name);
char* mkdtemp(char* pattern);
std::tm* gmtime_r(const std::time_t* time, std::tm* result);
std::tm* localtime_r(const std::time_t* time, std::tm* result);
std::time_t timegm(std::tm* time);
