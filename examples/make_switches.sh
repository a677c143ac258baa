#!/bin/sh
# Writes two tables of made-up time series to the current directory, one series per row: three switches in
# a line, watched at six steps. Column b4 is switch b at step 4, and step follows step. An empty line stands
# behind the header because the reader throws that line away.
#   sh make_switches.sh [SEED]      a seed gives the same tables everywhere
set -eu

# From one step to the next a switch mostly stays as it is, at times takes over what its left neighbour
# was, and now and then flips. One reading in twenty is wrong.
awk -v seed="${1:-1}" '
function draw() { seed = seed * 16807 % 2147483647; return seed / 2147483647 }
function next_state(i, t) {
  if (t == 0) return i > 0 && draw() < 0.6 ? on[i - 1] : draw() < 0.5
  if (i > 0 && draw() < 0.3) return was[i - 1]
  return draw() < 0.08 ? !on[i] : on[i]
}
function series(  t, i, line) {
  for (t = 0; t < 6; ++t) {
    for (i = 0; i < 3; ++i) was[i] = on[i]
    for (i = 0; i < 3; ++i) {
      on[i] = next_state(i, t)
      line = line (i + t > 0 ? "," : "") ((draw() < 0.05) != on[i] ? "on" : "off")
    }
  }
  return line
}
function table(name, rows,  r) {
  print "a0,b0,c0,a1,b1,c1,a2,b2,c2,a3,b3,c3,a4,b4,c4,a5,b5,c5\n" > name
  for (r = 0; r < rows; ++r) print series() > name
}
BEGIN { draw(); table("switches.csv", 150); table("switches_new.csv", 2000) }'
