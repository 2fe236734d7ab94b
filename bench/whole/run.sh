#!/usr/bin/env bash
# Measures calls from the wire to the files: a generator, the sniffer and the sample recorder on this machine.
#
#   bench/whole/run.sh [BUILD] [WAY] [CALLS...]    default: build/release TCP 250 500 1000 2000 3000 4000 5000
#
# WAY: TCP, the stand-alone sniffer with the recorder as a process of its own; embedded, both in one Java process. Runs
# each number of simultaneous calls once, until a packet is lost, and prints a line for each. Status 1 when the first
# one lost a packet.
#
# Needs root, iproute2 and ethtool. It makes two network namespaces and removes them. Environment: WHOLE_SECONDS (30) is
# the length of a call, WHOLE_OUT the folder for the recordings of the last run (a temporary one), WHOLE_JAVA (-Xmx1g)
# the options of Java, WHOLE_RECORDER further options of the recorder, WHOLE_SETTINGS further settings of the sniffer.
# With WHOLE_COMPARE=yes each file is compared with what was sent.
set -euo pipefail
export LC_ALL=C

here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../../build/release}" && pwd)
way=${2:-TCP}
shift $(($# < 2 ? $# : 2))
[ $# -gt 0 ] || set -- 250 500 1000 2000 3000 4000 5000
seconds=${WHOLE_SECONDS:-30}
settings="ImmediateCapture=yes SendTimeout=5000 QueueLimit=1024 LookBack=2000 LookBackMemory=256 CaptureTime=yes"
settings+=" Decapsulate=yes ReassembleFragments=yes ReassembleTcp=yes DropDuplicates=yes SipAnyUri=yes"
settings+=" ${WHOLE_SETTINGS:-}"

skip() { echo "SKIPPED: $*"; exit 77; }
[ "$(id -u)" = 0 ] || skip "the measurement needs root, for network namespaces"
for tool in ip ethtool java; do command -v $tool >/dev/null || skip "the measurement needs $tool"; done
wire=whole-wire-$$ tap=whole-tap-$$
ip netns add $wire 2>/dev/null || skip "no network namespace can be made here"

folder=$(mktemp -d)
out=${WHOLE_OUT:-$folder/recordings}
pids=()
stop() {
  local pid
  for pid in "${pids[@]}"; do kill -KILL "$pid" 2>/dev/null || true; done
  wait "${pids[@]}" 2>/dev/null || true
  pids=()
}
finish() { stop; ip netns del $wire; ip netns del $tap; rm -rf "$folder"; } 2>/dev/null
trap finish EXIT
ip netns add $tap
ip -n $wire link add wire0 type veth peer name tap0 netns $tap
for side in "$wire wire0" "$tap tap0"; do
  read -r namespace device <<<"$side"
  [ ! -e /proc/sys/net/ipv6 ] || ip netns exec "$namespace" sysctl -qw "net.ipv6.conf.$device.disable_ipv6=1"
  ip netns exec "$namespace" ethtool -K "$device" gro off gso off tso off >/dev/null
  ip -n "$namespace" link set lo up
  ip -n "$namespace" link set "$device" up
done

# The sender represents the network, which does not wait for the sniffer's use of the processor.
ahead=(chrt --rr 1)
"${ahead[@]}" true 2>/dev/null || ahead=()

start() { ip netns exec $tap setpriv --pdeathsig KILL "$@" & pids+=($!); }
await() {  # FILE PATTERN
  local tries=0
  until grep -q -E "$2" "$1"; do
    if [ $((tries += 1)) -gt 400 ]; then echo "waited in vain for $2:" >&2; tail -n 20 "$folder"/*.log >&2; exit 1; fi
    sleep 0.05
  done
}

# ---- figures ----

hertz=$(getconf CLK_TCK)
ticks() { sed 's/.*) //' "/proc/$1/stat" | awk '{print $12 + $13}'; }
softirq_ticks() { awk '/^cpu / {print $7 + $8}' /proc/stat; }
written() { awk '/^wchar/ {print $2}' "/proc/$1/io"; }
megabytes() { awk '/^VmHWM/ {printf "%d", $2 / 1024}' "/proc/$1/status"; }
per_frame() { awk "BEGIN {printf \"%.2f\", $1 * 1e6 / $hertz / $sent}"; }  # TICKS, in microseconds

# Prints the number of calls in the table and the sums of the packets recorded and lost.
recorded() {
  awk -F, 'NR == 1 {for (i = 1; i <= NF; i++) column[$i] = i; next}
    {recorded += $column["caller packets"] + $column["callee packets"]
     lost += $column["caller lost"] + $column["callee lost"]}
    END {print (NR > 0 ? NR - 1 : 0), recorded + 0, lost + 0}' "$out/calls.csv" 2>/dev/null || echo 0 0 0
}

# Waits until the table has this number of calls, or has not grown for 20 s.
await_calls() {
  local rows last=-1 quiet=0
  while [ $quiet -lt 40 ]; do
    read -r rows _ < <(recorded)
    [ "$rows" -lt "$1" ] || return 0
    if [ "$rows" = $last ]; then quiet=$((quiet + 1)); else quiet=0 last=$rows; fi
    sleep 0.5
  done
}

# ---- one number of calls ----

start_recorder() {  # OPTION...: leaves its process in $recorder
  start java ${WHOLE_JAVA:--Xmx1g} -Djava.library.path="$build/sniffer" -jar "$build/host/voip-sniffer.jar" \
    --out "$out" ${WHOLE_RECORDER:-} "$@" >"$folder/recorder.log" 2>&1
  recorder=${pids[-1]}
}

start_both() {  # leaves the processes in $recorder and $sniffer, which is empty when both are one
  sniffer=
  cd "$folder"
  printf '%s\n' 'log4j.rootLogger=INFO, console' 'log4j.appender.console=org.apache.log4j.ConsoleAppender' \
    'log4j.appender.console.Target=System.err' 'log4j.appender.console.layout=org.apache.log4j.PatternLayout' \
    'log4j.appender.console.layout.ConversionPattern=%p %m%n' >log4cxx.properties
  if [ "$way" = embedded ]; then
    start_recorder --embedded tap0 --filter udp $(printf -- '--set %s ' $settings)
    await recorder.log 'PCAP thread created'
    return
  fi
  start_recorder --tcp 6170
  await recorder.log waiting
  printf '%s\n' Device=tap0 Filter=udp ServerName=127.0.0.1 ServerPort=6170 ServerProtocol=TCP LogLevel=INFO \
    TraceSignalling=yes $settings >sniffer.properties
  start "$build/standalone/sniffer" >sniffer.log 2>&1
  sniffer=${pids[-1]}
  await sniffer.log 'PCAP thread created'
}

measure() {  # CALLS: true when nothing was lost; prints a line
  local calls=$1 before_sniffer=0 before_recorder before_kernel before_written sent media took busy rows good lost
  rm -rf "$out"
  start_both
  [ -z "$sniffer" ] || before_sniffer=$(ticks "$sniffer")
  before_recorder=$(ticks "$recorder") before_kernel=$(softirq_ticks) before_written=$(written "$recorder")
  read -r sent media took busy < <(ip netns exec $wire "${ahead[@]}" "$build/bench/whole/call_sender" wire0 "$calls" \
    "$seconds")
  await_calls "$calls"
  read -r rows good lost < <(recorded)
  local sniffing=- sniffer_memory=-
  if [ -n "$sniffer" ]; then
    sniffing=$(per_frame $(($(ticks "$sniffer") - before_sniffer))) sniffer_memory=$(megabytes "$sniffer")
  fi
  printf "$line" "$calls" $((calls * 100)) "$sniffing" \
    "$(per_frame $(($(ticks "$recorder") - before_recorder)))" \
    "$(per_frame $(($(softirq_ticks) - before_kernel)))" "$busy %" \
    "$(awk "BEGIN {printf \"%.1f\", ($(written "$recorder") - $before_written) / 1e6 / $took}")" \
    "$sniffer_memory + $(megabytes "$recorder")" "$((media - good))" "$((calls - rows))"
  stop
  if [ "${WHOLE_COMPARE:-}" = yes ]; then "$here/compare_recordings.py" "$out" "$seconds" || lost=unknown; fi
  if awk "BEGIN {exit !($took > $seconds * 4 / 3 * 1.05)}"; then echo "The sender was too slow: $took s" >&2; fi
  [ "$rows" = "$calls" ] && [ "$good" = "$media" ] && [ "$lost" = 0 ]
}

line='%6s %9s %11s %12s %10s %8s %10s %14s %13s %11s\n'
echo "$way, $(nproc) cores, load $(cut -d ' ' -f 1 /proc/loadavg); calls of $seconds s; processor time in us a frame"
printf "$line" calls frames/s sniffer recorder kernel sender "MB/s disk" "memory MB" "packets lost" "calls lost"
status=1
for calls; do
  measure "$calls" || break
  status=0
done
exit $status
