# OLA's olad as an Art-Net node in a namespace of its own, for the DMX integration tests.
# Needs netns_common.sh sourced first and $work set to a folder nobody may read.

# node_namespace NS SIDE_IF NODE_IF SIDE_IP NODE_IP: a namespace joined to this one by a veth
# pair, /24 addresses on both ends.
node_namespace() {
    ip netns add "$1" || unavailable "ip netns add failed"
    ip link add "$2" type veth peer name "$3" netns "$1"
    ip addr add "$4/24" brd + dev "$2"
    ip link set "$2" up
    ip netns exec "$1" ip addr add "$5/24" brd + dev "$3"
    ip netns exec "$1" ip link set "$3" up
    ip netns exec "$1" ip link set lo up
}

# start_olad NS IP NAME TAG: olad in NS as nobody (it refuses to run as root) with only the
# Art-Net plugin, on IP; sets olad_pid and olad_device (its Art-Net device number).
start_olad() {
    local ns=$1 ip=$2 name=$3 config=$work/ola$4
    mkdir "$config"
    printf 'enabled = true\nip = %s\n' "$ip" >"$config/ola-artnet.conf"
    [ -n "$name" ] && printf 'short_name = %s\n' "$name" >>"$config/ola-artnet.conf"
    # The other plugins would probe the host's serial and USB devices.
    for plugin in dummy e131 espnet ftdidmx gpio karate kinet milinst opendmx openpixelcontrol \
        osc pathport renard sandnet shownet spi stageprofi uartdmx usbdmx usbserial; do
        printf 'enabled = false\n' >"$config/ola-$plugin.conf"
    done
    chown -R nobody:nogroup "$config"
    # Started without a shell function so that $! is olad itself (ip and setpriv exec it).
    ip netns exec "$ns" setpriv --reuid=nobody --regid=nogroup --clear-groups \
        olad -c "$config" --no-http --no-register-with-dns-sd -l 3 >"$config.log" 2>&1 &
    olad_pid=$!
    olad_device=""
    for _ in $(seq 1 100); do
        olad_device=$(ip netns exec "$ns" ola_dev_info 2>/dev/null |
            sed -n 's/^Device \([0-9]*\): ArtNet.*/\1/p')
        [ -n "$olad_device" ] && return 0
        kill -0 "$olad_pid" 2>/dev/null || break
        sleep 0.1
    done
    fail "olad did not start its Art-Net device: $(tail -20 "$config.log")"
}

# start_recorder NS UNIVERSES: OLA's recorder into $work/show.txt; sets recorder.
start_recorder() {
    # A background job starts with SIGINT ignored; the recorder needs it back to stop and save.
    ip netns exec "$1" env --default-signal=INT \
        ola_recorder --record "$work/show.txt" --universes "$2" >"$work/recorder.log" 2>&1 &
    recorder=$!
    wait_for_line "$work/recorder.log" "Recording" 10 || fail "ola_recorder did not start"
}
stop_recorder() {
    kill -INT "$recorder"
    for _ in $(seq 1 50); do kill -0 "$recorder" 2>/dev/null || break; sleep 0.1; done
    kill -0 "$recorder" 2>/dev/null && fail "ola_recorder did not stop"
    recorder=""
}

# stop_process PID: TERM, three seconds' grace, then KILL.
stop_process() {
    kill "$1" 2>/dev/null || return 0
    for _ in $(seq 1 30); do kill -0 "$1" 2>/dev/null || break; sleep 0.1; done
    kill -KILL "$1" 2>/dev/null
    wait "$1" 2>/dev/null
}
