# Sourced by the start scripts: start_python DIR SCRIPT ARGS... runs a python
# test server in the background, records its PID in DIR/pid, waits until it
# wrote DIR/port and accepts connections, and sets $port.
start_python() {
    local dir=$1 script=$2
    shift 2
    /usr/bin/python3 -B "$script" "$@" >"$dir/server.log" 2>&1 &
    echo $! >>"$dir/pid"
    for _ in $(seq 200); do [ -s "$dir/port" ] && break; sleep 0.05; done
    if [ ! -s "$dir/port" ]; then
        echo "$(basename "$script") did not start:"; cat "$dir/server.log"
        return 1
    fi
    port=$(cat "$dir/port")
    "$(dirname "${BASH_SOURCE[0]}")/wait_port.sh" "$port" 10
}
