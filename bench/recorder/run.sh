#!/usr/bin/env bash
# The sample recorder under the load of many calls, over TCP on this machine: status 1 when a packet is missing.
#   bench/recorder/run.sh [BUILD] [CALLS] [SECONDS]     default: build/release 200 60
# The printed memory should not grow after the first minute.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../../build/release}" && pwd)
calls=${2:-200} seconds=${3:-60} port=${PORT:-6170}
folder=$(mktemp -d)
trap 'kill ${recorder:-} 2>/dev/null || true; rm -rf "$folder"' EXIT

java -Xmx512m -jar "$build/host/voip-sniffer.jar" --tcp "$port" --out "$folder" --until-disconnect >"$folder/log" &
recorder=$!
until grep -qs waiting "$folder/log"; do kill -0 $recorder; sleep 0.1; done
status=0
java -cp "$build/host/voip-sniffer.jar" "$here/RecorderLoad.java" "$port" "$calls" "$seconds" $recorder "$folder" || status=$?
grep -E 'DROPPED|dropped|cannot|failed' "$folder/log" || true
exit $status
