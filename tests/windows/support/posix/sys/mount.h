#pragma once

// The system mounts nothing in this way: it always fails.

constexpr int MNT_DETACH = 2;

int mount(const char* source, const wchar_t* target, const char* type, unsigned long flags, const void* data);
int umount2(const wchar_t* target, int flags);
