/* The comparison's actions over minizip, the plain way: an entry is found by its name, and an archive is
   changed by inflating and deflating every entry into a new one that takes the old one's place. */

#include "driver.h"

#include <minizip/unzip.h>
#include <minizip/zip.h>

/* A change of the archive: an entry to leave out, one to give another name, a file to add. */
struct change {
    const char* without;
    const char* from;
    const char* to;
    const char* added;
    const char* file;
};

static unzFile open_archive(const char* path) {
    unzFile archive = unzOpen64(path);
    if (!archive)
        fail("cannot open", path);
    return archive;
}

static void print_current(unzFile archive) {
    int got;
    if (unzOpenCurrentFile(archive) != UNZ_OK)
        fail("cannot open", "entry");
    while ((got = unzReadCurrentFile(archive, buffer, sizeof buffer)) > 0)
        print_bytes(buffer, (size_t)got);
    if (got < 0 || unzCloseCurrentFile(archive) != UNZ_OK)
        fail("cannot read", "entry");
}

static void current_name(unzFile archive, unz_file_info64* info, char name[PATH_SIZE]) {
    if (unzGetCurrentFileInfo64(archive, info, name, PATH_SIZE, NULL, 0, NULL, 0) != UNZ_OK)
        fail("cannot read", "central directory");
}

static void locate(unzFile archive, const char* name) {
    if (unzLocateFile(archive, name, 1) != UNZ_OK)
        fail("no entry", name);
}

void do_list(const char* path) {
    unzFile archive = open_archive(path);
    for (int found = unzGoToFirstFile(archive); found == UNZ_OK; found = unzGoToNextFile(archive)) {
        unz_file_info64 info;
        char name[PATH_SIZE];
        current_name(archive, &info, name);
        puts(name);
    }
    unzClose(archive);
}

void do_read(const char* path, const char* names) {
    unzFile archive = open_archive(path);
    FILE* list = open_list(names);
    char name[PATH_SIZE];
    while (next_line(list, name)) {
        locate(archive, name);
        print_current(archive);
    }
    fclose(list);
    unzClose(archive);
}

void do_readall(const char* path) {
    unzFile archive = open_archive(path);
    for (int found = unzGoToFirstFile(archive); found == UNZ_OK; found = unzGoToNextFile(archive))
        print_current(archive);
    unzClose(archive);
}

void do_cat(const char* path, const char* name) {
    unzFile archive = open_archive(path);
    locate(archive, name);
    print_current(archive);
    unzClose(archive);
}

static void begin_entry(zipFile out, const char* name, const zip_fileinfo* info) {
    if (zipOpenNewFileInZip3_64(out, name, info, NULL, 0, NULL, 0, NULL, Z_DEFLATED, Z_DEFAULT_COMPRESSION, 0,
                                -MAX_WBITS, 8, Z_DEFAULT_STRATEGY, NULL, 0, 0) != ZIP_OK)
        fail("cannot write", name);
}

static void put(zipFile out, const char* name, size_t count) {
    if (zipWriteInFileInZip(out, buffer, (unsigned)count) != ZIP_OK)
        fail("cannot write", name);
}

static void add_file(zipFile out, const char* name, const char* path) {
    zip_fileinfo info = {0};
    size_t got;
    FILE* file = open_list(path);
    info.tmz_date.tm_year = 2024;
    info.tmz_date.tm_mday = 1;
    begin_entry(out, name, &info);
    while ((got = fread(buffer, 1, sizeof buffer, file)) > 0)
        put(out, name, got);
    fclose(file);
}

static void carry_over(unzFile in, zipFile out, const struct change* change) {
    unz_file_info64 info;
    char name[PATH_SIZE];
    zip_fileinfo written = {0};
    int got;
    current_name(in, &info, name);
    if ((change->without && !strcmp(name, change->without)) ||
        (change->added && !strcmp(name, change->added)))
        return;
    memcpy(&written.tmz_date, &info.tmu_date, sizeof written.tmz_date);
    begin_entry(out, change->from && !strcmp(name, change->from) ? change->to : name, &written);
    if (unzOpenCurrentFile(in) != UNZ_OK)
        fail("cannot open", name);
    while ((got = unzReadCurrentFile(in, buffer, sizeof buffer)) > 0)
        put(out, name, (size_t)got);
    if (got < 0 || unzCloseCurrentFile(in) != UNZ_OK)
        fail("cannot read", name);
}

static void rebuild(const char* path, const struct change* change) {
    char temporary[PATH_SIZE];
    unzFile in = unzOpen64(path);
    zipFile out;
    if (snprintf(temporary, sizeof temporary, "%s.new", path) >= PATH_SIZE ||
        !(out = zipOpen64(temporary, 0)))
        fail("cannot make", path);
    if (in) {
        for (int found = unzGoToFirstFile(in); found == UNZ_OK; found = unzGoToNextFile(in))
            carry_over(in, out, change);
        unzClose(in);
    }
    if (change->added)
        add_file(out, change->added, change->file);
    if (zipClose(out, NULL) != ZIP_OK || rename(temporary, path) != 0)
        fail("cannot save", path);
}

void do_add(const char* path, const char* name, const char* file) {
    const struct change change = {.added = name, .file = file};
    rebuild(path, &change);
}

void do_rename(const char* path, const char* from, const char* to) {
    const struct change change = {.from = from, .to = to};
    rebuild(path, &change);
}

void do_delete(const char* path, const char* name) {
    const struct change change = {.without = name};
    rebuild(path, &change);
}

void do_fill(const char* path, const char* folder) {
    FILE* list = open_paths(folder);
    zipFile out = zipOpen64(path, 0);
    char name[PATH_SIZE];
    if (!out)
        fail("cannot make", path);
    while (next_line(list, name)) {
        char file[PATH_SIZE];
        join(file, folder, name);
        add_file(out, name, file);
    }
    fclose(list);
    if (zipClose(out, NULL) != ZIP_OK)
        fail("cannot save", path);
}

void do_commits(const char* path, const char* folder, int count) {
    FILE* list = open_paths(folder);
    char name[PATH_SIZE];
    while (count-- > 0 && next_line(list, name)) {
        char file[PATH_SIZE];
        join(file, folder, name);
        do_add(path, name, file);
    }
    fclose(list);
}
