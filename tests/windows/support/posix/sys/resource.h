#pragma once

// The system has no such limits: reading or setting one fails.

using rlim_t = unsigned long long;
struct rlimit {
    rlim_t rlim_cur;
    rlim_t rlim_max;
};

constexpr int RLIMIT_FSIZE = 1;
constexpr int RLIMIT_NOFILE = 7;
constexpr int SIGXFSZ = 25;

constexpr int RUSAGE_SELF = 0;
struct rusage {
    /// In KiB.
    long ru_maxrss;
};

int getrusage(int who, rusage* usage);
int getrlimit(int resource, rlimit* limit);
int setrlimit(int resource, const rlimit* limit);
