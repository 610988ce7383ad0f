#!/usr/bin/env bash
# Installs the build in BUILD_DIR into a temporary prefix (or, given "--system",
# uses the copy installed under /usr) and builds tests/consumer/project against
# it twice, through find_package and through pkg-config; each build must
# compile every installed header, link, and run.
#   run-consumer.sh BUILD_DIR | --system
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d /tmp/varnel-consumer.XXXXXX)
trap 'rm -rf "$work"' EXIT

if [ "${1:?usage: run-consumer.sh BUILD_DIR | --system}" = --system ]; then
  prefix=/usr
else
  prefix="$work/prefix"
  cmake --install "$1" --prefix "$prefix" >/dev/null
  "$prefix/bin/varnel" --version
  for page in varnel varnel-install varnel-template-copy; do
    [ -s "$prefix/share/man/man1/$page.1" ] || { echo "consumer: no manual page $page.1" >&2; exit 1; }
  done
fi
headers="$prefix/include/VarnelUtils"

if grep -rn '#include "[a-z]*/internal/' "$headers"; then
  echo "consumer: installed headers above include private ones" >&2
  exit 1
fi
cp -r "$here/project" "$work/src"
(cd "$headers" && find . -name '*.h' | sort | sed 's|^\./\(.*\)|#include "\1"|') \
  > "$work/src/all-headers.cpp"

pcdir=$(dirname "$(find "$prefix/lib" -name VarnelUtils.pc -print -quit)")
for way in find_package pkg-config; do
  flags=(-DCMAKE_PREFIX_PATH="$prefix")
  [ "$way" = pkg-config ] && flags=(-DUSE_PKG_CONFIG=ON)
  PKG_CONFIG_PATH="$pcdir" cmake -S "$work/src" -B "$work/build-$way" -G Ninja "${flags[@]}" >/dev/null
  cmake --build "$work/build-$way" | tail -40
  mkdir "$work/run-$way"
  echo "through $way:"
  "$work/build-$way/consumer" "$work/run-$way"
done
