#!/usr/bin/env bash
# Writes a manual page for the varnel tool and one for each of its
# subcommands, at every depth, from the tool's own --help, so that the pages
# say what the tool does. "varnel template copy" becomes varnel-template-copy.1.
#   varnel-man-pages.sh VARNEL OUT_DIR VERSION
set -euo pipefail
varnel=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
out=$2
version=$3
rm -rf "$out"
mkdir -p "$out"
bin=$(mktemp -d)
trap 'rm -rf "$bin"' EXIT
# Run through PATH so that the usage lines read "varnel ...", not a build path.
ln -s "$varnel" "$bin/varnel"
export PATH="$bin:$PATH"

# The "Subcommands:" section of a help text: one "name description" a line.
subcommands() {
  varnel "$@" --help | sed -n '/^Subcommands:/,/^$/p' | sed -n 's/^  \([a-z][a-z0-9-]*\)  *\(.*\)$/\1\t\2/p'
}

page() {
  local description=$1
  shift
  local name
  name=$(IFS=-; echo "varnel${*:+-$*}")
  local words="varnel${*:+ $*}"
  help2man --no-info --version-string="$version" --name="$description" \
    --output="$out/$name.1" "$words"
  # help2man names the page after the command line ("varnel template copy");
  # whatis and man -k want the page's own name there.
  sed -i -e "s/^\.TH [^\"]*\"1\"/.TH ${name^^} \"1\"/" -e "s/^$words \\\\-/$name \\\\-/" "$out/$name.1"
  local sub text
  while IFS=$'\t' read -r sub text; do
    page "$text" "$@" "$sub"
  done < <(subcommands "$@")
}

page "populate data volumes from system templates, and related tools"
