#!/usr/bin/env bash
# Runs the given program in a fresh network namespace with only loopback up, so that binding
# UDP 6454 and everything the bridge sends stay private to the test.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/../../support/netns_common.sh"
if [ -z "${KELVO_IN_NETNS:-}" ]; then
    enter_private_netns "$0" "$@"
fi
exec "$@"
