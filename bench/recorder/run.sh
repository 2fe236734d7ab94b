#!/usr/bin/env bash
# Sends many calls at a time to the sample recorder over TCP on this machine. Ends with status 1 when a packet is lost.
#   bench/recorder/run.sh [BUILD] [CALLS] [SECONDS] [compare]     default: build/release 200 60
# The memory that it prints should not grow after the first minute. With "compare" all recordings are compared with what
# was sent, sample by sample. TMPDIR names the file system that is written to.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../../build/release}" && pwd)
calls=${2:-200} seconds=${3:-60} compare=${4:-no} port=${PORT:-6170}
folder=$(mktemp -d)
trap 'kill ${recorder:-} 2>/dev/null || true; rm -rf "${KEEP:-$folder}"' EXIT

javac -cp "$build/host/voip-sniffer.jar" -d "$folder/classes" "$here"/*.java
options=(-Xmx640m -Xmn320m -XX:+UseSerialGC -XX:+UseTransparentHugePages)
java "${options[@]}" ${RECORDER_JAVA:-} -jar "$build/host/voip-sniffer.jar" --tcp "$port" --out "$folder" \
  --until-disconnect >"$folder/log" &
recorder=$!
until grep -qs waiting "$folder/log"; do kill -0 $recorder; sleep 0.1; done
status=0
java -Xmx256m -cp "$folder/classes:$build/host/voip-sniffer.jar" RecorderLoad "$port" "$calls" "$seconds" $recorder \
  "$folder" "$compare" || status=$?
grep -E 'DROPPED|dropped|cannot|failed' "$folder/log" || true
if [ "$compare" = compare ]; then java -cp "$folder/classes" CompareRecordings "$folder" || status=1; fi
exit $status
