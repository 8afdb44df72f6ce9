#!/bin/sh
# install_test.sh <build dir> <consumer source dir> <cmake> <C compiler>
# Installs the build into a temporary prefix, then builds and runs the C host of
# tests/c_api against it once with pkg-config and once as a CMake project that uses
# find_package(libtransfer), both without LD_LIBRARY_PATH; runs the installed tools with an
# empty environment (they must name the installed configuration), and installs again over
# a changed configuration, which must be kept.
set -eu
build=$1 src=$2 cmake=$3 cc=$4
host=$(cd "$src/../../c_api" && pwd)/c_api_host.c
tmp=$(mktemp -d "${TMPDIR:-/tmp}/transfer-install.XXXXXX")
trap 'rm -rf "$tmp"' EXIT
prefix=$tmp/prefix

"$cmake" --install "$build" --prefix "$prefix" >"$tmp/install.log" || {
    cat "$tmp/install.log"
    exit 1
}
for h in isp.h mio_json.h mio_sdfile.h sdk_log.h transfer_errors.h transfer_manage.h transfer_server.h uart.h; do
    [ -f "$prefix/include/transfer/$h" ] || { echo "not installed: include/transfer/$h"; exit 1; }
done
pc=$(find "$prefix" -name libtransfer.pc)
libdir=$(dirname "$(dirname "$pc")")
prefix=$(cd "$prefix" && pwd -P)
for f in etc/transfer/transfer.json etc/transfer/zlog.conf share/transfer/wireshark/transfer.lua; do
    [ -f "$prefix/$f" ] || { echo "not installed: $f"; exit 1; }
done
echo '{"changed": 1}' >"$prefix/etc/transfer/transfer.json"
"$cmake" --install "$build" --prefix "$prefix" >"$tmp/install.log" || {
    cat "$tmp/install.log"
    exit 1
}
grep -q changed "$prefix/etc/transfer/transfer.json" || { echo "transfer.json replaced"; exit 1; }
for tool in transfer_tool mcu_upgrade; do
    [ -x "$prefix/bin/$tool" ] || continue
    env -i "$prefix/bin/$tool" -h >"$tmp/usage" 2>&1 || { cat "$tmp/usage"; exit 1; }
    grep -q "now $prefix/etc/transfer/transfer.json" "$tmp/usage" ||
        { echo "$tool -h does not name $prefix/etc/transfer/transfer.json"; exit 1; }
done
so=$(readlink "$libdir/libtransfer.so")
[ "$(readlink "$libdir/$so")" = libtransfer.so.1.0.0 ] || { echo "bad SONAME links: $so"; exit 1; }

if command -v pkg-config >/dev/null 2>&1; then
    export PKG_CONFIG_PATH="$libdir/pkgconfig"
    # The .pc file carries no run path: the host records one itself, as the README says.
    # shellcheck disable=SC2046 # the flags are meant to split
    "$cc" -std=c11 -Wall -Wextra -Werror -pedantic $(pkg-config --cflags libtransfer) \
        -o "$tmp/host_pc" "$host" $(pkg-config --libs libtransfer) \
        -Wl,-rpath,"$(pkg-config --variable=libdir libtransfer)"
    env -u LD_LIBRARY_PATH "$tmp/host_pc"
else
    echo "pkg-config not installed: only the CMake package is checked"
fi

# The CMake build records an RPATH into the prefix; libtransfer.so finds the rest itself.
"$cmake" -S "$src" -B "$tmp/consumer" -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_PREFIX_PATH="$prefix" -DHOST_SOURCE="$host" >"$tmp/configure.log" || {
    cat "$tmp/configure.log"
    exit 1
}
"$cmake" --build "$tmp/consumer" >"$tmp/build.log" || {
    cat "$tmp/build.log"
    exit 1
}
env -u LD_LIBRARY_PATH "$tmp/consumer/host"
