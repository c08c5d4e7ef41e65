/* The comparison's actions over libzip, the plain way that its manual shows. */

#include "driver.h"

#include <zip.h>

static zip_t* open_archive(const char* path, int flags) {
    int error = 0;
    zip_t* archive = zip_open(path, flags, &error);
    if (!archive)
        fail("cannot open", path);
    return archive;
}

static void save(zip_t* archive) {
    if (zip_close(archive) != 0)
        fail("cannot save", zip_strerror(archive));
}

static zip_uint64_t index_of(zip_t* archive, const char* name) {
    const zip_int64_t index = zip_name_locate(archive, name, 0);
    if (index < 0)
        fail("no entry", name);
    return (zip_uint64_t)index;
}

static void print_entry(zip_t* archive, zip_uint64_t index) {
    zip_int64_t got;
    zip_file_t* file = zip_fopen_index(archive, index, 0);
    if (!file)
        fail("cannot open entry", zip_strerror(archive));
    while ((got = zip_fread(file, buffer, sizeof buffer)) > 0)
        print_bytes(buffer, (size_t)got);
    if (got < 0 || zip_fclose(file) != 0)
        fail("cannot read", "entry");
}

static void add_file(zip_t* archive, const char* name, const char* path) {
    zip_source_t* source = zip_source_file(archive, path, 0, -1);
    if (!source || zip_file_add(archive, name, source, ZIP_FL_OVERWRITE) < 0)
        fail("cannot add", name);
}

void do_list(const char* path) {
    zip_t* archive = open_archive(path, ZIP_RDONLY);
    const zip_int64_t count = zip_get_num_entries(archive, 0);
    for (zip_int64_t i = 0; i < count; ++i) {
        zip_stat_t status;
        if (zip_stat_index(archive, (zip_uint64_t)i, 0, &status) != 0)
            fail("cannot read entry", zip_strerror(archive));
        puts(status.name);
    }
    zip_discard(archive);
}

void do_read(const char* path, const char* names) {
    zip_t* archive = open_archive(path, ZIP_RDONLY);
    FILE* list = open_list(names);
    char name[PATH_SIZE];
    while (next_line(list, name))
        print_entry(archive, index_of(archive, name));
    fclose(list);
    zip_discard(archive);
}

void do_readall(const char* path) {
    zip_t* archive = open_archive(path, ZIP_RDONLY);
    const zip_int64_t count = zip_get_num_entries(archive, 0);
    for (zip_int64_t i = 0; i < count; ++i)
        print_entry(archive, (zip_uint64_t)i);
    zip_discard(archive);
}

void do_cat(const char* path, const char* name) {
    zip_t* archive = open_archive(path, ZIP_RDONLY);
    print_entry(archive, index_of(archive, name));
    zip_discard(archive);
}

void do_add(const char* path, const char* name, const char* file) {
    zip_t* archive = open_archive(path, 0);
    add_file(archive, name, file);
    save(archive);
}

void do_rename(const char* path, const char* from, const char* to) {
    zip_t* archive = open_archive(path, 0);
    if (zip_file_rename(archive, index_of(archive, from), to, 0) != 0)
        fail("cannot rename", from);
    save(archive);
}

void do_delete(const char* path, const char* name) {
    zip_t* archive = open_archive(path, 0);
    if (zip_delete(archive, index_of(archive, name)) != 0)
        fail("cannot delete", name);
    save(archive);
}

static void add_below(zip_t* archive, const char* folder, const char* name) {
    char path[PATH_SIZE];
    join(path, folder, name);
    add_file(archive, name, path);
}

void do_fill(const char* path, const char* folder) {
    zip_t* archive = open_archive(path, ZIP_CREATE);
    FILE* list = open_paths(folder);
    char name[PATH_SIZE];
    while (next_line(list, name))
        add_below(archive, folder, name);
    fclose(list);
    save(archive);
}

void do_commits(const char* path, const char* folder, int count) {
    FILE* list = open_paths(folder);
    char name[PATH_SIZE];
    while (count-- > 0 && next_line(list, name)) {
        zip_t* archive = open_archive(path, ZIP_CREATE);
        add_below(archive, folder, name);
        save(archive);
    }
    fclose(list);
}
