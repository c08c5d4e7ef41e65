#!/usr/bin/env bash
# Puts what the Windows build needs beyond Debian's binary packages into CACHE: the sources of Boost.Log (with what it
# stands on), of Boost.Iostreams and of minizip from Debian's source packages.
#
# usage: tools/windows/prepare.sh CACHE
#
# The sources stand in a folder named after the package versions, to which CACHE/sources leads. apt is called with a
# configuration of its own, so nothing below /etc is changed.
set -euo pipefail

cache=$1
boost=boost1.74
parts=(libs/log/src libs/thread/src libs/filesystem/src libs/atomic/src libs/iostreams/src)
minizip=minizip

fail() {
  echo "cannot prepare the Windows build: $*" >&2
  exit 1
}

version_of() { dpkg-query -W -f='${source:Version}' "$1" | tr -c 'A-Za-z0-9.+~\n-' _; }

fetch_sources() {
  local folder=$1 apt=$cache/apt
  rm -rf "$folder" "$folder.part" "$apt"
  mkdir -p "$folder.part" "$apt"/{parts,lists/partial,cache/archives/partial}
  if [ -e /etc/apt/sources.list.d/debian.sources ]; then
    sed -E 's/^Types:.*/Types: deb-src/' /etc/apt/sources.list.d/debian.sources >"$apt/parts/src.sources"
  fi
  if [ -s /etc/apt/sources.list ]; then
    sed -nE 's/^deb /deb-src /p' /etc/apt/sources.list >"$apt/parts/src.list"
  fi
  local options=(-qq -o Dir::Etc::sourcelist=/dev/null -o Dir::Etc::sourceparts="$apt/parts"
    -o Dir::State::lists="$apt/lists" -o Dir::Cache="$apt/cache" -o APT::Sandbox::User=root)
  apt-get "${options[@]}" update || fail "the lists of source packages cannot be read"
  (
    cd "$folder.part"
    apt-get "${options[@]}" source --download-only "$boost" "$minizip"
    # With Debian's security patches. apt has checked the files; the missing key of the maintainer is harmless.
    dpkg-source -x minizip_*.dsc minizip >unpack.log 2>&1
    mkdir boost
    tar -xJf "$boost"_*.orig.tar.xz -C boost --strip-components=1 --wildcards "${parts[@]/#/*/}"
    rm -f ./*.orig.tar.* ./*.debian.tar.* ./*.dsc
  ) || fail "the source packages $boost and $minizip cannot be fetched"
  mv "$folder.part" "$folder"
  rm -rf "$apt"
}

mkdir -p "$cache"
versions=$(version_of libboost1.74-dev)_$(version_of libminizip-dev)
sources=$cache/sources-$versions
for part in minizip "${parts[@]/#/boost/}"; do
  [ -d "$sources/$part" ] || fetch_sources "$sources"
done
ln -sfn "sources-$versions" "$cache/sources"
