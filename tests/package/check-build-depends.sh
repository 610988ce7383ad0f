#!/usr/bin/env bash
# Every package scripts/bootstrap installs to build the library and the tool
# (its "build" and "library dependencies" groups) must be in Build-Depends of
# debian/control, so that a dependency added to one is not forgotten in the
# other.
#   check-build-depends.sh SOURCE_DIR
set -euo pipefail
cd "${1:?usage: check-build-depends.sh SOURCE_DIR}"
needed=$(sed -n '/^  # build$/,/^  # [^bl]/p' scripts/bootstrap | grep -v '^ *#' | tr -s ' \n' '\n' | sed '/^$/d')
declared=$(sed -n '/^Build-Depends:/,/^[A-Z]/p' debian/control | sed 's/^Build-Depends://; /^[A-Z]/d' |
  tr ',' '\n' | sed 's/(.*)//; s/^ *//; s/ *$//' | sed '/^$/d')
missing=$(comm -23 <(sort -u <<<"$needed") <(sort -u <<<"$declared"))
if [ -n "$missing" ]; then
  echo "debian/control lacks these Build-Depends that scripts/bootstrap installs:" $missing >&2
  exit 1
fi
echo "Build-Depends cover scripts/bootstrap's $(wc -l <<<"$needed") build packages"
