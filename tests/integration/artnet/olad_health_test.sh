#!/usr/bin/env bash
[ -n "${KELVO_TRACE:-}" ] && set -x
# The running bridge against OLA's olad as Art-Net nodes: it finds them by ArtPoll, explains
# in its status line what it sees, repairs a wrong host or wrong universes by itself, and the
# DMX then reaches the node.
#
# Topology, all created here and torn down on exit: this script runs in a private network
# namespace (the bridge side, 10.202.N.1) joined by a veth pair per node to namespaces where
# olad runs (10.202.N.2) as nobody, because olad refuses to run as root.
#   olad_health_test.sh SCENARIO BRIDGE SEED_CACHE TESTMUSIC
# SCENARIO: host-silent (one node elsewhere: adopted, then streaming),
#           universe-mismatch (routes renumbered to the node's universes),
#           two-nodes (nobody at the host, two answer: no repair).
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/../../support/netns_common.sh"
. "$here/../../support/olad_node.sh"
scenario=$1 bridge=$2 seed_cache=$3 testmusic=$4

if [ "${KELVO_IN_NETNS:-}" != 1 ]; then
    for tool in olad ola_dev_info ola_patch ola_recorder setpriv; do require_tool "$tool"; done
    [ "$(id -u)" = 0 ] || unavailable "needs root to create namespaces and drop to nobody for olad"
    enter_private_netns "$0" "$@"
fi

work=$(mktemp -d)
chmod 755 "$work"
namespaces=() olads=() recorder="" bridge_pid=""
cleanup() {
    set +e
    [ -n "$bridge_pid" ] && kill "$bridge_pid" 2>/dev/null
    [ -n "$recorder" ] && kill "$recorder" 2>/dev/null
    for pid in "${olads[@]}"; do stop_process "$pid"; done
    for ns in "${namespaces[@]}"; do ip netns del "$ns"; done
    rm -rf "$work"
}
trap cleanup EXIT

# start_node N NAME OLA_UNIVERSE…: a node at 10.202.N.2 named NAME whose Art-Net ports 0, 1, …
# are patched to the given OLA universes (OLA uses the universe's low nibble as the port's
# Art-Net address, so universe 4 is Art-Net 4).
start_node() {
    local n=$1 name=$2 port=0
    shift 2
    local ns=kelvo-ah-$$-$n
    namespaces+=("$ns")
    node_namespace "$ns" "kah$$b$n" "kah$$n$n" "10.202.$n.1" "10.202.$n.2"
    start_olad "$ns" "10.202.$n.2" "$name" "$n"
    olads+=("$olad_pid")
    for universe in "$@"; do
        ip netns exec "$ns" ola_patch --device "$olad_device" --port "$port" --universe "$universe" --input
        port=$((port + 1))
    done
}

# run_bridge SECONDS ARGS…: the headless bridge from a private cache, in the background.
run_bridge() {
    local seconds=$1
    shift
    export XDG_DATA_HOME=$work/data XDG_CONFIG_HOME=$work/config
    mkdir -p "$XDG_DATA_HOME" "$XDG_CONFIG_HOME"
    "$seed_cache" "$here/../../../devcloud" >"$work/seed.log" 2>&1 || fail "seeding: $(cat "$work/seed.log")"
    "$testmusic" -o "$work/track.wav" --bpm 120 --seconds 30 >/dev/null
    "$bridge" --headless --audio-file "$work/track.wav" --enttec off --artnet on \
        --run-seconds "$seconds" "$@" >"$work/bridge.log" 2>&1 &
    bridge_pid=$!
}
finish_bridge() {
    wait "$bridge_pid" || fail "the bridge failed: $(cat "$work/bridge.log")"
    bridge_pid=""
}
expect_line() { # TEXT SECONDS
    wait_for_line "$work/bridge.log" "$1" "$2" || fail "no \"$1\" in: $(cat "$work/bridge.log")"
}
setting() {
    sed -n "s/^kelvo.bridge.$1=//p" "$work/config/Kelvo/KelvoBridge.conf"
}
recorded_universes() {
    grep -E '^[0-9]+ ' "$work/show.txt" | cut -d' ' -f1 | sort -un | tr '\n' ' '
}

case "$scenario" in
host-silent)
    start_node 1 "Stage rack" 0
    start_recorder "kelvo-ah-$$-1" 0
    run_bridge 8 --artnet-host 10.202.1.99 --route 1=artnet:0
    expect_line "Auto: Point Art-Net output at 10.202.1.2" 8
    expect_line "(Stage rack · 1 universe)" 8
    finish_bridge
    stop_recorder
    [ "$(setting artnet_host)" = 10.202.1.2 ] || fail "the adopted host was not saved"
    [ "$(recorded_universes)" = "0 " ] || fail "OLA recorded no DMX from the bridge: $(head -c 300 "$work/show.txt")"
    ;;
universe-mismatch)
    # Ports 0 and 1 drive Art-Net 4 and 5; the idle ports 2 and 3 still list universe 0.
    start_node 1 "Truss" 4 5
    start_recorder "kelvo-ah-$$-1" 4,5
    run_bridge 8 --artnet-host 10.202.1.2 --route 1=artnet:0 --route 2=artnet:1
    expect_line "Auto: Send Art-Net 4, 5" 8
    expect_line "(Truss · 2 universes)" 8
    finish_bridge
    stop_recorder
    # Qt writes the JSON with its quotes escaped.
    grep -qF '\"artnet\":{\"universe\":4}},\"virtualUniverse\":1}' "$work/config/Kelvo/KelvoBridge.conf" &&
        grep -qF '\"artnet\":{\"universe\":5}},\"virtualUniverse\":2}' "$work/config/Kelvo/KelvoBridge.conf" ||
        fail "the renumbered routes were not saved: $(cat "$work/config/Kelvo/KelvoBridge.conf")"
    [ "$(recorded_universes)" = "4 5 " ] || fail "OLA recorded universes $(recorded_universes)"
    ;;
two-nodes)
    start_node 1 "Left" 0
    start_node 2 "Right" 0
    run_bridge 6 --artnet-host 10.202.1.99 --route 1=artnet:0
    expect_line "(10.202.1.99 not responding)" 6
    finish_bridge
    ! grep -q "Auto:" "$work/bridge.log" || fail "repaired with two candidates: $(cat "$work/bridge.log")"
    [ "$(setting artnet_host)" = 10.202.1.99 ] || fail "the host changed"
    ;;
*) fail "unknown scenario $scenario" ;;
esac
echo "$scenario: $(grep -c . "$work/bridge.log") lines; last: $(tail -1 "$work/bridge.log")"
