#pragma once

/* What the drivers over other libraries share: the actions of the comparison and their input.

   usage: DRIVER ACTION ARCHIVE [ARGUMENT...]

     list                    prints the path of every file, one a line
     read NAMES-FILE         prints the bytes of the entries named in the file, one name a line
     readall                 prints the bytes of every entry
     cat NAME                prints the bytes of one entry
     add NAME FILE           adds, or replaces, an entry
     rename NAME NAME        gives an entry another name
     delete NAME             removes an entry
     fill FOLDER             adds every file below the folder, in the order of FOLDER-paths.txt
     commits FOLDER COUNT    adds the first COUNT of them, each saved before the next */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define PATH_SIZE 4096
#define BUFFER_SIZE (256 * 1024)

static char buffer[BUFFER_SIZE];

static void fail(const char* what, const char* detail) {
    fprintf(stderr, "%s: %s\n", what, detail);
    exit(1);
}

static void print_bytes(const void* data, size_t count) {
    if (fwrite(data, 1, count, stdout) != count)
        fail("cannot write", "standard output");
}

static FILE* open_list(const char* path) {
    FILE* file = fopen(path, "r");
    if (!file)
        fail("cannot open", path);
    return file;
}

/* The next line without its end; 0 when there is none. */
static int next_line(FILE* file, char line[PATH_SIZE]) {
    if (!fgets(line, PATH_SIZE, file))
        return 0;
    line[strcspn(line, "\n")] = '\0';
    return 1;
}

static void join(char out[PATH_SIZE], const char* folder, const char* name) {
    if (snprintf(out, PATH_SIZE, "%s/%s", folder, name) >= PATH_SIZE)
        fail("path too long", name);
}

static FILE* open_paths(const char* folder) {
    char list[PATH_SIZE];
    if (snprintf(list, sizeof list, "%s-paths.txt", folder) >= PATH_SIZE)
        fail("path too long", folder);
    return open_list(list);
}

/* Runs the action that the program was asked for; each is defined by the driver. */
void do_list(const char* archive);
void do_read(const char* archive, const char* names);
void do_readall(const char* archive);
void do_cat(const char* archive, const char* name);
void do_add(const char* archive, const char* name, const char* file);
void do_rename(const char* archive, const char* from, const char* to);
void do_delete(const char* archive, const char* name);
void do_fill(const char* archive, const char* folder);
void do_commits(const char* archive, const char* folder, int count);

int main(int argc, char** argv) {
    const char* action = argc > 2 ? argv[1] : "";
    setvbuf(stdout, NULL, _IOFBF, 64 * 1024);
    if (argc == 3 && !strcmp(action, "list"))
        do_list(argv[2]);
    else if (argc == 4 && !strcmp(action, "read"))
        do_read(argv[2], argv[3]);
    else if (argc == 3 && !strcmp(action, "readall"))
        do_readall(argv[2]);
    else if (argc == 4 && !strcmp(action, "cat"))
        do_cat(argv[2], argv[3]);
    else if (argc == 5 && !strcmp(action, "add"))
        do_add(argv[2], argv[3], argv[4]);
    else if (argc == 5 && !strcmp(action, "rename"))
        do_rename(argv[2], argv[3], argv[4]);
    else if (argc == 4 && !strcmp(action, "delete"))
        do_delete(argv[2], argv[3]);
    else if (argc == 4 && !strcmp(action, "fill"))
        do_fill(argv[2], argv[3]);
    else if (argc == 5 && !strcmp(action, "commits"))
        do_commits(argv[2], argv[3], atoi(argv[4]));
    else
        fail("usage", "DRIVER ACTION ARCHIVE [ARGUMENT...]; the actions stand in driver.h");
    if (fflush(stdout) != 0)
        fail("cannot write", "standard output");
    return 0;
}
