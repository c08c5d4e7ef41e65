/* Runs a program and tells what it cost. A program of its own, since the peak memory that the system reports
   of a child counts from the memory of the process that made it.

   usage: measure RESULT-FILE PROGRAM [ARGUMENT...]

   Writes "seconds user system peak-KiB status" to the result file. */

#define _GNU_SOURCE

#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static double now(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + 1e-9 * (double)time.tv_nsec;
}

static double seconds(struct timeval time) {
    return (double)time.tv_sec + 1e-6 * (double)time.tv_usec;
}

int main(int argc, char** argv) {
    struct rusage usage;
    int status = 0;
    if (argc < 3)
        return 2;
    const double start = now();
    const pid_t child = fork();
    if (child == 0) {
        execvp(argv[2], argv + 2);
        perror(argv[2]);
        _exit(127);
    }
    if (child < 0 || wait4(child, &status, 0, &usage) != child)
        return 1;
    const double end = now();
    FILE* result = fopen(argv[1], "w");
    if (!result)
        return 1;
    fprintf(result, "%.6f %.6f %.6f %ld %d\n", end - start, seconds(usage.ru_utime), seconds(usage.ru_stime),
            usage.ru_maxrss, WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    return fclose(result) == 0 ? 0 : 1;
}
