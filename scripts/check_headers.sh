#!/usr/bin/env bash
# Holds the headers to the shape of the house: every header compiles by itself, is reached through
# exactly one door (the shared mechanisms in support/ have none), and includes nothing from a floor
# above its own.
#
#   scripts/check_headers.sh [--structure]     --structure leaves out the compiling
set -u
cd "$(dirname "$0")/.." || exit 1
root=src/include/QZ
floors=(support comb poly graph data inference bp mrf opt io machine)
failures=0

complain() {
  echo "$1" >&2
  failures=$((failures + 1))
}

floor_of() {
  local i
  for i in "${!floors[@]}"; do
    [ "${floors[$i]}" = "$1" ] && echo "$i" && return
  done
  echo -1
}

for header in $(cd src/include && find QZ -name '*.h' | sort); do
  room=$(cut -d/ -f2 <<<"$header")
  mine=$(floor_of "$room")
  [ "$mine" -ge 0 ] || complain "$header stands in no known room"
  for other in $(grep -oE '#include "QZ/[a-z_]+/' "src/include/$header" | cut -d/ -f2 | sort -u); do
    theirs=$(floor_of "$other")
    # The machine's numbers name graphs and parametrisations, which stand below it.
    [ "$theirs" -le "$mine" ] || complain "$header includes $other/, which is a floor above"
  done
  doors=$(grep -lF "#include \"$header\"" $root/QZ* 2>/dev/null | wc -l)
  if [ "$room" = support ]; then
    [ "$doors" -eq 0 ] || complain "$header is shared by all rooms and has no door"
  else
    [ "$doors" -eq 1 ] || complain "$header is reached through $doors doors"
  fi
done

if [ "${1-}" != --structure ]; then
  compiler=${CXX:-g++}
  check() {
    "$1" -std=c++20 -fopenmp -Wall -Wextra -Werror -fsyntax-only -x c++ -Isrc -Isrc/include \
      -include "$2" /dev/null || { echo "$2 does not stand alone" >&2; return 1; }
  }
  export -f check
  (cd src/include && find QZ -name '*.h' -o -name 'QZ[A-Z]*') | sort |
    xargs -P 2 -I{} bash -c "check $compiler {}" || failures=$((failures + 1))
fi

[ "$failures" -eq 0 ] && echo "headers in order" || exit 1
