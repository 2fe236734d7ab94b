#!/usr/bin/env bash
# Sends many calls at a time to the sample recorder over TCP on this machine. Ends with status 1 when a packet is lost.
#   bench/recorder/run.sh [BUILD] [CALLS] [SECONDS]     default: build/release 200 60
# The memory that it prints should not grow after the first minute.
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
java -cp "$build/host/voip-sniffer.jar" "$here/RecorderLoad.java" "$port" "$calls" "$seconds" $recorder \
  "$folder" || status=$?
grep -E 'DROPPED|dropped|cannot|failed' "$folder/log" || true
exit $status
