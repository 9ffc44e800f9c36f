#!/usr/bin/env bash
# tshark decodes our ArtPoll and ArtDmx captured on loopback inside a private network
# namespace; the fields must be the ones we meant. Port 0 is given, so 6454 must be used.
#   tshark_artnet_test.sh PROBE
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/netns_common.sh"
probe=$1

if [ "${KELVO_IN_NETNS:-}" != 1 ]; then
    require_tool tshark
    enter_private_netns "$0" "$@"
fi

work=$(mktemp -d)
trap 'kill "${capture:-}" 2>/dev/null || true; rm -rf "$work"' EXIT
capture_file=$work/artnet.pcapng

tshark -i lo -f 'udp port 6454' -c 4 -w "$capture_file" >"$work/tshark.log" 2>&1 &
capture=$!
wait_for_line "$work/tshark.log" "Capturing on" 20 || fail "tshark did not start: $(cat "$work/tshark.log")"

# ArtPoll, then three frames of universe 0x1234 carrying three channels.
"$probe" --host 127.0.0.1 --port 0 --listen 6454 --universe 4660 --frames 3 --values 1,2,3 --poll \
    >"$work/probe.log"
cat "$work/probe.log"
grep -q 'packetsSent=4 sendFailures=0 recoveries=0' "$work/probe.log" || fail "unexpected transport status"

for _ in $(seq 1 100); do kill -0 "$capture" 2>/dev/null || break; sleep 0.1; done
kill "$capture" 2>/dev/null && fail "tshark did not see four packets"
wait "$capture" || true

decoded=$(tshark -r "$capture_file" -T fields -E separator=' ' \
    -e udp.dstport -e artnet.header.opcode -e artnet.header.protver \
    -e artnet.output.sequence -e artnet.output.physical -e artnet.output.universe \
    -e artnet.output.length -e artnet.poll.talktome -e artnet.poll.diag_priority)
echo "$decoded"
expected="6454 0x2000 14     0x00 0
6454 0x5000 14 1 0 4660 4  
6454 0x5000 14 2 0 4660 4  
6454 0x5000 14 3 0 4660 4  "
[ "$decoded" = "$expected" ] || fail "decoded fields differ from what was sent"
# The payload itself: three channels and the zero that makes the length even.
payload=$(tshark -r "$capture_file" -Y 'artnet.header.opcode == 0x5000' -T fields -e artnet.output.data | head -1)
[ "$payload" = "01020300" ] || fail "ArtDmx payload was $payload"
echo "tshark decoded every field as sent"
