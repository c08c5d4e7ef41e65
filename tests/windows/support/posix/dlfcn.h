#pragma once

constexpr int RTLD_NOW = 0;
constexpr int RTLD_LOCAL = 0;
/// Only a library that is loaded already.
constexpr int RTLD_NOLOAD = 1;

void* dlopen(const char* path, int mode);
void* dlsym(void* library, const char* name);
int dlclose(void* library);
const char* dlerror();
