#!/usr/bin/env bash
# Installs the build into a scratch prefix and builds the README's C++ sample
# against it through pkg-config, then runs it.
set -euo pipefail
build=$1
readme=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cmake --install "$build" --prefix "$scratch/prefix" >/dev/null
# The first ```cpp block of the README is the sample.
awk '/^```cpp$/{inside=1; next} /^```$/{if (inside) exit} inside' "$readme" >"$scratch/sample.cpp"
[ -s "$scratch/sample.cpp" ] || { echo "no C++ sample in $readme"; exit 1; }

pcdir=$(dirname "$(find "$scratch/prefix" -name tessera.pc | head -n 1)")
# The .pc file names the configured prefix; point it at the scratch one.
export PKG_CONFIG_PATH=$pcdir
flags=$(pkg-config --define-variable=prefix="$scratch/prefix" --cflags --libs tessera)
g++ -std=c++17 -Wall -Wextra -Werror "$scratch/sample.cpp" $flags -o "$scratch/sample"
LD_LIBRARY_PATH=$(pkg-config --define-variable=prefix="$scratch/prefix" --variable=libdir tessera) \
    "$scratch/sample" | tee "$scratch/out"
grep -q '^Version:v2.22.1.0' "$scratch/out"
"$scratch/prefix/bin/tessera" version >/dev/null
echo "installed tree builds and runs the README sample"
