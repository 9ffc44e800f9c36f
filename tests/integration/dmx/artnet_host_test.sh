#!/usr/bin/env bash
# Art-Net hosts the way venues type them, inside a private network and mount namespace:
# "localhost" where /etc/hosts lists ::1 first still reaches 127.0.0.1 (Art-Net is IPv4 only);
# a host with no route leaves the association waiting with the system's reason; a subnet
# broadcast address works; a send buffer held full by a slow link drops datagrams, which are
# counted, while the association stays ready.
#   artnet_host_test.sh PROBE
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/../../support/netns_common.sh"
probe=$1

if [ "${KELVO_IN_NETNS:-}" != 1 ]; then
    require_tool unshare
    require_tool ip
    require_tool tc
    unshare -n -m true 2>/dev/null || unavailable "cannot create network and mount namespaces (needs root)"
    KELVO_IN_NETNS=1 exec unshare -n -m -- bash -c 'ip link set lo up && exec "$@"' bash "$0" "$@"
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
printf '::1\tlocalhost ip6-localhost\n127.0.0.1\tlocalhost\n' >"$work/hosts"
mount --bind "$work/hosts" /etc/hosts # private to this mount namespace

out=$("$probe" localhost 5 20 1,2,3,4 listen)
echo "$out"
grep -qx 'packetsSent=5 sendFailures=0 recoveries=0 state=ready lastError=-' <<<"$out" ||
    fail "localhost must resolve to 127.0.0.1"
grep -qx 'received=[45]' <<<"$out" || fail "the node on 127.0.0.1 must receive the frames"

out=$("$probe" 10.77.0.1 3 10 1,2,3,4 | sed -n 1p)
echo "$out"
[ "$out" = "packetsSent=3 sendFailures=0 recoveries=0 state=waiting lastError=Network is unreachable" ] ||
    fail "no route yet: waiting, kept within the readiness deadline"

ip link add kelvo0 type veth peer name kelvo1
ip addr add 10.77.0.1/24 dev kelvo0
ip link set kelvo0 up
ip link set kelvo1 up
out=$("$probe" 10.77.0.255 5 20 1,2,3,4 listen)
echo "$out"
grep -qx 'packetsSent=5 sendFailures=0 recoveries=0 state=ready lastError=-' <<<"$out" ||
    fail "a broadcast host must be usable"
grep -qx 'received=5' <<<"$out" || fail "the broadcast frames must arrive"

# A link that takes 1 kB/s and queues everything: the socket's send buffer fills.
tc qdisc add dev kelvo0 root tbf rate 8kbit burst 1600 limit 50000000
ip neigh add 10.77.0.9 lladdr 02:00:00:00:00:09 dev kelvo0
out=$("$probe" 10.77.0.9 3000 0 "$(seq -s, 1 512)")
echo "$out"
grep -qx 'packetsSent=3000 sendFailures=0 recoveries=0 state=ready lastError=-' <<<"$out" ||
    fail "a full send buffer must not break the association"
dropped=$(sed -n 's/^datagramsDropped=//p' <<<"$out")
[ "$dropped" -gt 0 ] || fail "datagrams dropped for a full send buffer must be counted"
echo "Art-Net hosts: localhost is IPv4, broadcast works, $dropped datagrams dropped and counted"
