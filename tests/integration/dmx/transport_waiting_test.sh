#!/usr/bin/env bash
# With no usable route (a private namespace whose loopback stays down) the transport's
# association reports "waiting" with the system's reason, keeps being used within the 3.0 s
# readiness deadline, and is rebuilt (one recovery) by the first send after it.
#   transport_waiting_test.sh PROBE
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/../../support/netns_common.sh"
probe=$1

if [ "${KELVO_IN_NETNS:-}" != 1 ]; then
    require_tool unshare
    unshare -n true 2>/dev/null || unavailable "cannot create a network namespace (needs root or CAP_SYS_ADMIN)"
    KELVO_IN_NETNS=1 exec unshare -n -- "$0" "$@" # loopback deliberately left down
fi

within=$("$probe" --host 127.0.0.1 --frames 3 --interval-ms 10 | sed -n 1p)
echo "$within"
[ "$within" = "packetsSent=3 sendFailures=0 recoveries=0 state=waiting lastError=Network is unreachable" ] ||
    fail "a waiting association must be kept within the deadline"

after=$("$probe" --host 127.0.0.1 --frames 2 --interval-ms 3100 | sed -n 1p)
echo "$after"
[ "$after" = "packetsSent=2 sendFailures=0 recoveries=1 state=waiting lastError=Network is unreachable" ] ||
    fail "the send after the deadline must rebuild, counting a recovery"
