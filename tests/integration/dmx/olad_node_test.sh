#!/usr/bin/env bash
[ -n "${KELVO_TRACE:-}" ] && set -x
# OLA's olad as the Art-Net node: OLA's own recorder reads back exactly the channel values
# LiveDmxOutput sent. (Reading the node's ArtPollReply is covered end to end by the olad
# health scenarios.)
#
# Topology, all created here and torn down on exit: this script runs in a private network
# namespace (10.201.0.1) joined by a veth pair to a second namespace where olad runs
# (10.201.0.2) as nobody, because olad refuses to run as root.
#   olad_node_test.sh PROBE
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/../../support/netns_common.sh"
. "$here/../../support/olad_node.sh"
probe=$1

if [ "${KELVO_IN_NETNS:-}" != 1 ]; then
    for tool in olad ola_dev_info ola_patch ola_recorder setpriv; do require_tool "$tool"; done
    [ "$(id -u)" = 0 ] || unavailable "needs root to create namespaces and drop to nobody for olad"
    enter_private_netns "$0" "$@"
fi

node_ns=kelvo-olad-$$
bridge_if=kbr$$
node_if=knd$$
bridge_ip=10.201.0.1
node_ip=10.201.0.2
work=$(mktemp -d)
chmod 755 "$work"

cleanup() {
    set +e
    [ -n "${recorder:-}" ] && kill "$recorder" 2>/dev/null
    [ -n "${olad_pid:-}" ] && stop_process "$olad_pid"
    ip netns del "$node_ns" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT

node_namespace "$node_ns" "$bridge_if" "$node_if" "$bridge_ip" "$node_ip"
in_node() { ip netns exec "$node_ns" "$@"; }
start_olad "$node_ns" "$node_ip" "" 1
# OLA's Art-Net input port 0 receives the network's DMX into OLA universe 1.
in_node ola_patch --device "$olad_device" --port 0 --universe 1 --input

# OLA gives a port the low nibble of its universe as the Art-Net address: the probe's 1.

# A full universe whose every channel differs from its neighbours.
values=$(for i in $(seq 0 511); do printf '%d,' $(((i * 7 + 3) % 256)); done)
values=${values%,}
start_recorder "$node_ns" 1
sleep 0.3
status=$("$probe" "$node_ip" 10 25 "$values")
echo "$status"
[[ "$status" == "packetsSent=10 sendFailures=0 recoveries=0 state=ready"* ]] || fail "transport status"
sleep 0.3
stop_recorder

frames=$(grep -c "^1 " "$work/show.txt" || true)
[ "$frames" -ge 1 ] || fail "OLA recorded no frames: $(cat "$work/recorder.log")"
mismatched=$(grep "^1 " "$work/show.txt" | grep -vcx "1 $values" || true)
[ "$mismatched" = 0 ] || fail "OLA received other values: $(grep '^1 ' "$work/show.txt" | head -1 | cut -c1-200)"
echo "OLA received $frames frames with exactly the 512 values sent on Art-Net universe 1"
