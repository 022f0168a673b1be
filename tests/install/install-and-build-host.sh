#!/usr/bin/env bash
# Installs the build into a fresh prefix, builds a host project against the
# installed package alone, and runs it and the installed programs against the
# installed simulator.
#   install-and-build-host.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1
source=$2
address=${SORVIK_TEST_HOST:-127.0.0.1}
work=$(mktemp -d)
trap 'kill $sim_pid 2>/dev/null || true; rm -rf "$work"' EXIT
sim_pid=

cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$source/tests/install/host-project" -B "$work/host" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/host" >/dev/null

"$work/prefix/bin/sorvik-sim" --address "$address" --port 0 >"$work/sim.out" 2>/dev/null &
sim_pid=$!
for _ in $(seq 50); do [ -s "$work/sim.out" ] && break; sleep 0.1; done
endpoint=$(sed -n 's/^udp //p' "$work/sim.out")

output=$("$work/host/sorvik-host" "$endpoint")
echo "$output"
[ "$output" = "$(printf 'Sorvik\nLW3 0 1234')" ]

# The installed host finds the installed library beside its own folder.
"$work/prefix/bin/sorvik-cli" --connect "$endpoint" --format csv read LW3:int32 | grep -q '^LW3,int32,0,'
test -f "$work/prefix/share/sorvik/wireshark/sorvik.lua"
readlink "$work/prefix/lib/libSorvik.so" | grep -q 'libSorvik.so.1'
echo "install tree and host build ok"
