#!/bin/sh
# Runs a command inside a private network namespace that has lo and an "eth0" up:
#   netns_run.sh <program> [args...]
# eth0 is one end of a veth pair (a dummy interface where veth is not available); both are
# private to the namespace, so nothing sent there can leave the machine.
# Exit status 77 (reported as skipped by ctest) when no such namespace can be made here:
# no unshare or ip, namespaces not permitted, or the links cannot be created.
# TRANSFER_IN_NETNS=1 in the environment means "already in such a namespace": the command
# then runs directly (the program itself sees it set).
skip() {
    echo "SKIPPED: $*" >&2
    exit 77
}

[ "${TRANSFER_IN_NETNS:-}" = 1 ] && exec "$@"

if [ "${TRANSFER_NETNS_STAGE:-}" = inner ]; then
    # Inside the new namespace: build the links, then become the program.
    unset TRANSFER_NETNS_STAGE
    ip link set lo up 2>/dev/null || skip "cannot bring lo up in the namespace"
    ip link add eth0 type veth peer name veth1 2>/dev/null || ip link add eth0 type dummy 2>/dev/null ||
        skip "cannot create eth0 in the namespace"
    ip link set eth0 up 2>/dev/null || skip "cannot bring eth0 up in the namespace"
    if ip link show veth1 >/dev/null 2>&1; then ip link set veth1 up 2>/dev/null || skip "cannot bring veth1 up"; fi
    # The carrier of a new link comes up asynchronously (and late on a loaded machine);
    # the programs expect eth0 running (operationally up), so wait for it (about 5 s at most).
    tries=0
    until ip -o link show eth0 2>/dev/null | grep -Eq 'state (UP|UNKNOWN)'; do
        tries=$((tries + 1))
        [ "$tries" -le 500 ] || { echo "netns_run.sh: eth0 still not running, going on" >&2; break; }
        sleep 0.01
    done
    TRANSFER_IN_NETNS=1 exec "$@"
fi

[ $# -ge 1 ] || { echo "usage: netns_run.sh <program> [args...]" >&2; exit 2; }
command -v unshare >/dev/null 2>&1 || skip "unshare not installed"
command -v ip >/dev/null 2>&1 || skip "ip (iproute2) not installed"
# Root may make a plain network namespace; anyone else needs a user namespace mapped to
# root around it, where the kernel permits those.
userns=""
unshare -n true 2>/dev/null || userns="-r"
[ -z "$userns" ] || unshare -r -n true 2>/dev/null || skip "cannot create a network namespace here (unshare -n not permitted)"
TRANSFER_NETNS_STAGE=inner exec unshare $userns -n sh "$0" "$@"
