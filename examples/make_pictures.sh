#!/bin/sh
# Draws the pictures of docs/poisson.md: make_pictures.sh BUILD-FOLDER. gnuplot draws.
set -eu
build=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
docs=$(cd "$here/../docs" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$build/bin/zor" poisson "$here/charges.txt" --plot "$docs/potential.png"
"$build/tests/cloning" "$here/lake.pgm" "$here/boat.pgm" 60 50 "$work/joined.pgm"
gnuplot <<END
set terminal pngcairo size 900,300
set output "$docs/cloning.png"
set multiplot layout 1,3
set palette gray
set cbrange [0:255]
unset colorbox
unset tics
set size ratio -1
set title "the picture"
plot "$here/lake.pgm" binary skip=15 array=(160,120) format="%uchar" flipy with image notitle
set title "the part, larger"
plot "$here/boat.pgm" binary skip=13 array=(65,49) format="%uchar" flipy with image notitle
set title "joined"
plot "$work/joined.pgm" binary skip=15 array=(160,120) format="%uchar" flipy with image notitle
END
