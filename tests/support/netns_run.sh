#!/bin/sh
# Runs a command inside a private network namespace that has lo and an "eth0" up:
#   netns_run.sh <program> [args...]
# Exit status 77 (reported as skipped) when namespaces are not permitted here.
if [ "${TRANSFER_IN_NETNS:-}" = 1 ]; then
    exec "$@"
fi
if ! unshare -n true 2>/dev/null; then
    echo "SKIPPED: cannot create a network namespace here (unshare -n not permitted)" >&2
    exit 77
fi
TRANSFER_IN_NETNS=1 exec unshare -n sh -c '
    ip link set lo up &&
    ip link add eth0 type veth peer name veth1 &&
    ip link set eth0 up && ip link set veth1 up || { echo "SKIPPED: no eth0 in namespace" >&2; exit 77; }
    exec "$@"' netns_run "$@"
