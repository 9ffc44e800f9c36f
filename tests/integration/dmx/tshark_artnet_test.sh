#!/usr/bin/env bash
# tshark decodes our ArtPoll and ArtDmx captured on loopback inside a private network
# namespace; the fields must be the ones we meant. Port 0 is given, so 6454 must be used.
#   tshark_artnet_test.sh PROBE
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/../../support/netns_common.sh"
probe=$1

if [ "${KELVO_IN_NETNS:-}" != 1 ]; then
    require_tool tshark
    enter_private_netns "$0" "$@"
fi

work=$(mktemp -d)
trap 'kill "${capture:-}" 2>/dev/null || true; rm -rf "$work"' EXIT
decoded_log=$work/decoded.txt

# Live decoding; port 6455 carries only the marker that proves the capture is running.
tshark -i lo -l -f 'udp port 6454 or udp port 6455' -T fields -E separator=' ' \
    -e udp.dstport -e artnet.header.opcode -e artnet.header.protver \
    -e artnet.output.sequence -e artnet.output.physical -e artnet.output.universe \
    -e artnet.output.length -e artnet.poll.talktome -e artnet.poll.diag_priority \
    -e udp.payload >"$decoded_log" 2>"$work/tshark.log" &
capture=$!
started=0
for _ in $(seq 1 200); do
    kill -0 "$capture" 2>/dev/null || fail "tshark exited: $(cat "$work/tshark.log")"
    echo marker >/dev/udp/127.0.0.1/6455 2>/dev/null || true
    if grep -q '^6455' "$decoded_log"; then started=1; break; fi
    sleep 0.1
done
[ $started = 1 ] || fail "tshark never saw the marker: $(cat "$work/tshark.log")"

# ArtPoll, then three frames of universe 0x1234 carrying three channels. Port 0 is given.
"$probe" --host 127.0.0.1 --port 0 --listen 6454 --universe 4660 --frames 3 --values 1,2,3 --poll \
    >"$work/probe.log"
cat "$work/probe.log"
grep -q 'packetsSent=4 sendFailures=0 recoveries=0 state=ready' "$work/probe.log" ||
    fail "unexpected transport status"

for _ in $(seq 1 100); do
    [ "$(grep -c '^6454' "$decoded_log")" -ge 4 ] && break
    sleep 0.1
done
kill "$capture" 2>/dev/null || true
wait "$capture" 2>/dev/null || true

decoded=$(grep '^6454' "$decoded_log")
echo "$decoded"
# Decoded fields, then the datagram itself: the ArtDmx payload is the three channels and the
# zero that makes its length even.
header=4172742d4e657400
expected="6454 0x2000 14     0x00 0 ${header}0020000e0000
6454 0x5000 14 1 0 4660 4   ${header}0050000e01003412000401020300
6454 0x5000 14 2 0 4660 4   ${header}0050000e02003412000401020300
6454 0x5000 14 3 0 4660 4   ${header}0050000e03003412000401020300"
[ "$decoded" = "$expected" ] || fail "decoded fields differ from what was sent"
echo "tshark decoded every field as sent"
