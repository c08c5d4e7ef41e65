#!/usr/bin/env bash
# Works through a real archive with kxvfs and compares every step with stock tools.
#
# usage: tools/demo.sh KXVFS
#
# The archive is made with `zip -r` from this repository's documents and sources. Prints each command with the
# begin of its output, and ends at the first difference with a non-zero status.
set -euo pipefail
export LC_ALL=C.UTF-8 TZ=UTC

repository=$(cd "$(dirname "$0")/.." && pwd)
tool=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
work=$repository/build/demo
kxvfs() { "$tool" "$@"; }

if [ -t 1 ] && [ -z "${NO_COLOR:-}" ]; then bold=$'\e[1m' plain=$'\e[0m'; else bold='' plain=''; fi
title() { printf '\n%s%s%s\n' "$bold" "$*" "$plain"; }
proof() { printf '  = %s\n' "$*"; }
fail() { printf 'demo: %s\n' "$*" >&2; exit 1; }

# The command as one would type it, then the first lines of what it prints.
show() {
  printf '  $ %s\n' "$(typed "$@")"
  run "$@"
}

# The same with a text on standard input.
show_with_input() {
  local text=$1
  shift
  printf '  $ echo %s | %s\n' "$(typed "$text")" "$(typed "$@")"
  run "$@" <<<"$text"
}

typed() {
  local word words=()
  for word in "$@"; do
    [[ $word =~ ^[A-Za-z0-9_./=+-]+$ ]] || word="'$word'"
    words+=("$word")
  done
  printf '%s' "${words[*]}"
}

run() {
  "$@" >"$work/output.txt"
  head -n "$lines" "$work/output.txt" | sed 's/^/    /'
  local left=$(($(wc -l <"$work/output.txt") - lines))
  if [ "$left" -gt 0 ]; then printf '    … %d more lines\n' "$left"; fi
}
lines=6

same() {
  cmp -s "$1" "$2" || { diff "$1" "$2" | head -n 20 >&2 || true; fail "$3"; }
}

make_archive() {
  title "A real archive, made by zip from this repository"
  rm -rf "$work"
  mkdir -p "$work/tree"
  cd "$work"
  python3 "$repository/tools/demo_tree.py" "$repository" tree 5000
  (cd tree && show zip -q -r ../plans.zip .)
  proof "$(unzip -Z1 plans.zip | wc -l) entries, $(stat -c %s plans.zip) bytes"
}

look_around() {
  title "The plug-in is a bundle, found as a service by its scheme"
  show kxvfs providers
  title "An archive is a folder"
  show kxvfs ls plans.zip
  show kxvfs ls -l plans.zip/project
  show kxvfs stat plans.zip/project/README.md
  show kxvfs find plans.zip --name '*.cmake'
  show kxvfs du plans.zip/project
}

# unzip -l and kxvfs ls -lR must name the same entries with the same sizes and times.
compare_listing() {
  title "Listing everything gives what unzip lists"
  show kxvfs ls -lR plans.zip
  kxvfs --json ls -lR plans.zip >listing.json
  unzip -l plans.zip >listing.txt
  python3 - <<'PYTHON' || fail "ls -lR and unzip -l differ"
import json, re, sys
mine = {}
for row in json.load(open("listing.json")):
    name = row["path"].partition("!/")[2].rstrip("/") + ("/" if row["type"] == "folder" else "")
    mine[name] = (row["size"] or 0, row["modified"].replace("T", " ")[:16])
theirs = {}
for line in open("listing.txt"):
    match = re.match(r"\s*(\d+)\s+(\d{4}-\d\d-\d\d \d\d:\d\d)\s{3}(.+)$", line)
    if match:
        theirs[match[3]] = (int(match[1]), match[2])
for name in sorted(mine.keys() ^ theirs.keys())[:10]:
    print("only one of them lists", name, file=sys.stderr)
different = [name for name in mine.keys() & theirs.keys() if mine[name] != theirs[name]]
for name in different[:10]:
    print(name, mine[name], theirs[name], file=sys.stderr)
sys.exit(bool(different or mine.keys() != theirs.keys()))
PYTHON
  proof "the same $(unzip -Z1 plans.zip | wc -l) names, sizes and times"
}

compare_contents() {
  title "Reading every entry gives what unzip gives"
  show kxvfs cat plans.zip/project/Makefile
  unzip -Z1 plans.zip | grep -v '/$' | sed 's|^|plans.zip/|' >files.txt
  xargs -a files.txt -d '\n' "$tool" cat >contents.kxvfs
  unzip -p plans.zip >contents.unzip
  same contents.kxvfs contents.unzip "cat and unzip -p differ"
  proof "the same $(stat -c %s contents.unzip) bytes of $(wc -l <files.txt) files"
  rm contents.kxvfs contents.unzip
  show kxvfs check plans.zip
}

copy_out() {
  title "Copying out"
  show kxvfs cp -r plans.zip/project out
  diff -r tree/project out || fail "what was copied out differs from what was packed"
  proof "diff -r finds no difference"
}

write_into() {
  title "Writing, appending, copying in"
  show_with_input 'first line' kxvfs write plans.zip/notes.txt
  show_with_input 'second line' kxvfs write --append plans.zip/notes.txt
  show kxvfs cat plans.zip/notes.txt
  [ "$(unzip -p plans.zip notes.txt)" = $'first line\nsecond line' ] || fail "unzip reads other notes"
  show kxvfs cp -r out/docs plans.zip/copied
  show kxvfs ls plans.zip/copied
}

rearrange() {
  title "Folders, moves, removal"
  show kxvfs mkdir -p plans.zip/archive/2020
  show kxvfs mv plans.zip/notes.txt plans.zip/archive/2020/notes.txt
  show kxvfs mv plans.zip/variations/01 plans.zip/archive/first
  show kxvfs rm -r plans.zip/variations
  show kxvfs ls -R plans.zip/archive/2020
}

nest() {
  title "An archive inside the archive"
  show kxvfs create inner.zip
  show kxvfs mkdir inner.zip/deep
  show_with_input 'deep inside' kxvfs write inner.zip/deep/note.txt
  show kxvfs cp inner.zip plans.zip/archive/
  show_with_input 'changed in place' kxvfs write --append plans.zip/archive/inner.zip/deep/note.txt
  show kxvfs cat plans.zip/archive/inner.zip/deep/note.txt
  unzip -p plans.zip archive/inner.zip >inner-again.zip
  [ "$(unzip -p inner-again.zip deep/note.txt)" = $'deep inside\nchanged in place' ] ||
    fail "the nested archive holds something else"
}

verify() {
  title "Other programs read the result"
  show unzip -tq plans.zip
  # Among the packed files are archives that are damaged on purpose.
  python3 "$repository/tests/support/archives/independent_readers.py" --not-inside plans.zip inner-again.zip ||
    fail "unzip, Python's zipfile and bsdtar do not all accept the archives"
  proof "unzip -t, Python's zipfile and bsdtar read plans.zip and the archive that was nested in it"
  printf '  $ python3 zipfile\n'
  python3 - <<'PYTHON' || fail "Python's zipfile does not accept the archive"
import pathlib, sys, zipfile
with zipfile.ZipFile("plans.zip") as archive:
    bad = archive.testzip()
    if bad:
        sys.exit(f"{bad} is damaged")
    files = [info for info in archive.infolist() if not info.is_dir()]
    for info in files:
        if info.filename.startswith("project/") and archive.read(info) != (pathlib.Path("tree") / info.filename).read_bytes():
            sys.exit(f"{info.filename} changed")
    print(f"    {len(files)} files in {len(archive.infolist())} entries, each with its checksum")
PYTHON
  show kxvfs check plans.zip
}

start=$SECONDS
make_archive
look_around
compare_listing
compare_contents
copy_out
write_into
rearrange
nest
verify
title "Done in $((SECONDS - start)) seconds. The archive is build/demo/plans.zip; try: build/release/bin/kxvfs --help"
