#!/usr/bin/env bash
# Installs the build into a fresh prefix and builds hosts against the installed
# tree alone: the README's host code through the CMake package, a host that
# links the library through the CMake package and through pkg-config. Runs
# them and the installed programs against the installed simulator, with no
# library search path set.
#   install-and-build-host.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1
source=$2
address=${SORVIK_TEST_HOST:-127.0.0.1}
work=$(mktemp -d)
sim_pid=
trap '[ -z "$sim_pid" ] || kill "$sim_pid" 2>/dev/null || true; rm -rf "$work"' EXIT
unset LD_LIBRARY_PATH QT_LOGGING_RULES
prefix=$work/prefix

fail() {
  echo "FAIL: $*" >&2
  exit 1
}

cmake --install "$build" --prefix "$prefix" >/dev/null

# The README's host code, exactly as it stands there.
awk '/^## Using the library from a host/ { in_section = 1 }
     in_section && /^```cpp$/ { in_code = 1; next }
     in_code && /^```$/ { exit }
     in_code' "$source/README.md" >"$work/readme_host.cpp"
grep -q 'int readTag(' "$work/readme_host.cpp" || fail "no host code in the README's host section"

cmake -S "$source/tests/install/host-project" -B "$work/host" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DREADME_HOST_SOURCE="$work/readme_host.cpp" >/dev/null
cmake --build "$work/host" >/dev/null

export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
cxx=${CXX:-c++}
# shellcheck disable=SC2046 # pkg-config prints several words on purpose
"$cxx" -std=c++17 -o "$work/pc-linked-host" "$source/tests/install/host-project/linked_host.cpp" \
  $(pkg-config --cflags --libs sorvik) -Wl,-rpath,"$(pkg-config --variable=libdir sorvik)"
# shellcheck disable=SC2046
"$cxx" -std=c++17 -o "$work/pc-loading-host" "$source/tests/install/host-project/loading_host.cpp" \
  "$work/readme_host.cpp" -DSORVIK_LIBRARY_FILE="\"$(pkg-config --variable=libraryfile sorvik)\"" \
  $(pkg-config --cflags sorvik) $(pkg-config --libs Qt5Core)

"$prefix/bin/sorvik-sim" --address "$address" --port 0 --set AI1=int32:42 >"$work/sim.out" 2>/dev/null &
sim_pid=$!
for _ in $(seq 50); do [ -s "$work/sim.out" ] && break; sleep 0.1; done
endpoint=$(sed -n 's/^udp //p' "$work/sim.out")
[ -n "$endpoint" ] || fail "the installed simulator did not start"

# The README's code reads a tag; its line goes to the message log.
for host in "$work/host/sorvik-loading-host" "$work/pc-loading-host"; do
  "$host" "$endpoint" AI1 2>"$work/read.err" || fail "$host: exit $? reading AI1: $(cat "$work/read.err")"
  grep -qF '"AI1" (42)' "$work/read.err" || fail "$host: AI1 not read as 42: $(cat "$work/read.err")"
done

# A read the controller leaves unanswered (beyond the end of area AI) logs the
# lost-reply warning in category "default"; the rule the README gives
# silences the drive's warnings and keeps the host's own information lines.
loader=$work/host/sorvik-loading-host
status=0
"$loader" "$endpoint" AI99999 2>"$work/lost.err" || status=$?
[ "$status" = 3 ] || fail "a lost reply ended with $status: $(cat "$work/lost.err")"
grep -qF 'lib[Sorvik]返回的报文长度为0' "$work/lost.err" || fail "no lost-reply warning: $(cat "$work/lost.err")"
status=0
QT_LOGGING_RULES='default.warning=false' "$loader" "$endpoint" AI99999 2>"$work/quiet.err" || status=$?
[ "$status" = 3 ] || fail "a lost reply ended with $status under the rule"
! grep -qF 'lib[Sorvik]' "$work/quiet.err" || fail "the rule let the drive's lines through: $(cat "$work/quiet.err")"
grep -qF '"AI99999" no reply' "$work/quiet.err" || fail "the rule silenced the host too: $(cat "$work/quiet.err")"

# Linking hosts call the exported factory directly.
for host in "$work/host/sorvik-linked-host" "$work/pc-linked-host"; do
  output=$("$host" "$endpoint") || fail "$host: exit $?"
  [ "$output" = "$(printf 'Sorvik\nLW3 0 1234')" ] || fail "$host printed: $output"
done

# The installed command-line host finds the installed library beside its own folder.
cli_line=$("$prefix/bin/sorvik-cli" --connect "$endpoint" --format csv read LW3:int32 | grep '^LW3,') || true
[[ "$cli_line" == LW3,int32,0,*,1234,* ]] || fail "the installed sorvik-cli read LW3 as: $cli_line"
test -f "$prefix/share/sorvik/wireshark/sorvik.lua" || fail "no dissector installed"
[ "$(readlink "$prefix/lib/libSorvik.so")" = libSorvik.so.1 ] || fail "libSorvik.so does not lead to the soname"
echo "install tree and host builds ok"
