# Shared by the DMX integration tests. Network safety: everything these tests send stays
# inside network namespaces they create themselves.

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

# A missing tool fails in CI and skips (ctest code 77) elsewhere.
unavailable() {
    if [ "${CI:-}" = true ]; then
        fail "$*"
    fi
    echo "SKIP: $*" >&2
    exit 77
}

require_tool() {
    command -v "$1" >/dev/null 2>&1 || unavailable "$1 is not installed (scripts/setup installs it)"
}

# Re-runs the calling script inside a fresh network namespace with loopback up.
enter_private_netns() {
    local script=$1
    shift
    require_tool unshare
    require_tool ip
    unshare -n true 2>/dev/null || unavailable "cannot create a network namespace (needs root or CAP_SYS_ADMIN)"
    KELVO_IN_NETNS=1 exec unshare -n -- bash -c 'ip link set lo up && exec "$@"' bash "$script" "$@"
}

# wait_for_line FILE TEXT SECONDS
wait_for_line() {
    local deadline=$((SECONDS + $3))
    while [ $SECONDS -lt $deadline ]; do
        grep -q "$2" "$1" 2>/dev/null && return 0
        sleep 0.1
    done
    return 1
}
