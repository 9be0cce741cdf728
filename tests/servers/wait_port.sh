#!/usr/bin/env bash
# wait_port.sh PORT [SECONDS]: waits until 127.0.0.1:PORT accepts connections.
port=$1
limit=${2:-10}
for _ in $(seq $((limit * 20))); do
    if (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
        exit 0
    fi
    sleep 0.05
done
echo "nothing listens on 127.0.0.1:$port after ${limit}s" >&2
exit 1
