#!/usr/bin/env bash
# Measures the path of a packet from a device to a recorder on the same machine: the highest rate of RTP frames (214
# bytes, all requested) without loss, and the processor time of the sniffer per frame.
#
#   bench/road/run.sh [BUILD] [WAY...]     BUILD: default build/release. WAY: TCP, UDP, Java, JavaBlock; default all
#   bench/road/run.sh BUILD pause [RATE...]  stops a TCP recorder for three of eight seconds, at each rate;
#                                          status 1 when a frame is lost or repeated, or the connection changes
#   bench/road/run.sh BUILD check          runs a moderate rate only; status 1 when a frame is lost
#
# Needs root, iproute2, ethtool and tcpdump. It makes two network namespaces and removes them. Environment: ROAD_SECONDS
# (2) is the length of a trial, ROAD_MOST (1600000) the highest rate, ROAD_SETTINGS (SendTimeout=5000) are further
# settings of the stand-alone sniffer.
set -euo pipefail
export LC_ALL=C

here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../../build/release}" && pwd)
shift || true
seconds=${ROAD_SECONDS:-2}
most=${ROAD_MOST:-1600000}
immediate=yes
latest=$((100 * seconds + 200))  # milliseconds after the last frame was sent

skip() { echo "SKIPPED: $*"; exit 77; }
[ "$(id -u)" = 0 ] || skip "the road needs root, for network namespaces"
for tool in ip ethtool; do command -v $tool >/dev/null || skip "the road needs $tool"; done
wire=road-wire-$$ tap=road-tap-$$
ip netns add $wire 2>/dev/null || skip "no network namespace can be made here"

folder=$(mktemp -d)
pids=()
stop() {
  local pid
  for pid in "${pids[@]}"; do kill "$@" "$pid" 2>/dev/null || true; done
  wait "${pids[@]}" 2>/dev/null || true
  pids=()
}
finish() { stop -KILL; ip netns del $wire; ip netns del $tap; rm -rf "$folder"; } 2>/dev/null
trap finish EXIT
ip netns add $tap
ip -n $wire link add wire0 type veth peer name tap0 netns $tap
for side in "$wire wire0" "$tap tap0"; do
  set -- $side "$@"
  [ ! -e /proc/sys/net/ipv6 ] || ip netns exec "$1" sysctl -qw "net.ipv6.conf.$2.disable_ipv6=1"
  # A well configured mirror port does not merge frames either.
  ip netns exec "$1" ethtool -K "$2" gro off gso off tso off >/dev/null
  ip -n "$1" link set lo up
  ip -n "$1" link set "$2" up
  shift 2
done

# Sender and recorder represent other machines, so they must not wait for the sniffer's use of the processor.
ahead=(chrt --rr 1)
"${ahead[@]}" true 2>/dev/null || ahead=()

# The processes end with this script.
start() { ip netns exec $tap setpriv --pdeathsig KILL "$@" & pids+=($!); }
await() {  # FILE PATTERN COMMAND...: prints the first line that matches; repeats the command until then
  local file=$1 pattern=$2 tries=0
  shift 2
  until grep -m1 -E "$pattern" "$file"; do
    if [ $((tries += 1)) -gt 400 ]; then echo "waited in vain for $pattern:" >&2; cat "$folder"/* >&2; exit 1; fi
    [ $# = 0 ] || "$@"
    sleep 0.05
  done
}
send() { ip netns exec $wire "${ahead[@]}" "$build/bench/road/road_sender" wire0 "$@"; }
ticks() { sed 's/.*) //' "/proc/$1/stat" | awk '{print $12 + $13}'; }

start_sniffer() {  # WAY FRAMES: leaves its process in $sniffer
  cat >"$folder/log4cxx.properties" <<'.'
log4j.rootLogger=INFO, console
log4j.appender.console=org.apache.log4j.ConsoleAppender
log4j.appender.console.Target=System.err
log4j.appender.console.layout=org.apache.log4j.PatternLayout
log4j.appender.console.layout.ConversionPattern=%p %m%n
.
  : >"$folder/recorder"
  : >"$folder/log"
  if [[ $1 = Java* ]]; then
    cd "$folder"
    start nice -n -20 java -cp "$build/host/voip-sniffer.jar" -Djava.library.path="$build/sniffer" \
      "$here/RoadHost.java" tap0 "$2" ${1#Java} >recorder 2>log
  else
    start "${ahead[@]}" "$build/bench/road/road_recorder" "$1" "$2" >"$folder/recorder"
    local port
    port=$(await "$folder/recorder" '^[0-9]+$')
    printf '%s\n' Device=tap0 Filter=udp ServerName=127.0.0.1 "ServerPort=$port" "ServerProtocol=$1" LogLevel=INFO \
      TraceSignalling=yes "ImmediateCapture=$immediate" ${ROAD_SETTINGS-SendTimeout=5000} >"$folder/sniffer.properties"
    cd "$folder"
    start nice -n -20 "$build/standalone/sniffer" 2>log >output
  fi
  sniffer=${pids[-1]}
  await "$folder/log" 'PCAP thread created' >/dev/null
  await "$folder/recorder" '^ready' send opener >/dev/null
}

trial() {  # WAY RATE: true when nothing was lost; leaves $cost, in microseconds a frame, and $text
  local frames=$(($2 * seconds)) before after sent took arrived gaps late=0
  if [ "$1" = tcpdump ]; then
    start tcpdump -i tap0 -B 32768 -w /dev/null udp 2>"$folder/log"
    sniffer=${pids[-1]}
    await "$folder/log" 'listening on' >/dev/null
  else
    start_sniffer "$1" $frames
  fi
  before=$(ticks "$sniffer")
  read -r sent took < <(send "$2" "$seconds")
  if [ "$1" = tcpdump ]; then
    sleep 1.2  # the kernel hands over what it has after a second
    after=$(ticks "$sniffer")
    stop -INT
    arrived=$(awk '/packets captured/ {print $1}' "$folder/log") gaps=0
  else
    late=$(date +%s%N)
    read -r arrived gaps < <(await "$folder/recorder" '^[0-9]+ [0-9]+$')
    late=$((($(date +%s%N) - late) / 1000000))
    after=$(ticks "$sniffer")
    stop -TERM
  fi
  cost=$(awk "BEGIN {printf \"%.2f\", ($after - $before) * 1e6 / $(getconf CLK_TCK) / $sent}")
  text="$arrived of $sent, $gaps gaps, $cost us a frame, the last $late ms after it was sent"
  # A trial does not count if the sender was too slow, or if the last frame arrived late because a queue grew.
  awk "BEGIN {exit !($arrived == $sent && $gaps == 0 && $took < $seconds * 1.03 && $late < $latest)}"
}

highest() {  # WAY: leaves the highest rate without loss in $rate, and its $price
  local low=0 high=$((most + 1)) next=100000
  price=-
  while [ $((high - low)) -gt $((low / 10 + 10000)) ] && [ $next -le "$most" ]; do
    if trial "$1" $next; then low=$next price=$cost; else high=$next; fi
    echo "  $1 at $next a second: $text" >&2
    next=$((high > most ? low * 2 : (low + high) / 2000 * 1000))
    [ $low -lt "$most" ] && [ $next -gt "$most" ] && next=$most
    [ $low = "$most" ] && break
  done
  rate=$low
}

if [ "${1:-}" = check ]; then
  latest=60000
  for way in "TCP yes" "UDP no"; do
    immediate=${way#* }
    trial "${way% *}" 10000 || { echo "$way: $text"; cat "$folder/log"; exit 1; }
  done
  exit
fi

if [ "${1:-}" = pause ]; then
  shift
  seconds=8
  export ROAD_PAUSE=yes
  [ $# -gt 0 ] || set -- 4000 50000
  for rate; do
    start_sniffer TCP $((rate * seconds))
    recorder=${pids[-2]}
    (sleep 2; kill -STOP "$recorder"; sleep 3; kill -CONT "$recorder") &
    read -r sent _ < <(send "$rate" $seconds)
    read -r arrived gaps < <(await "$folder/recorder" '^[0-9]+ [0-9]+$')
    stop -TERM
    echo "$rate a second: $arrived of $sent, $gaps gaps;$(grep -o ' sendWaits=.*' "$folder/log")"
    grep -E 'recorderConnects|WARN' "$folder/log" | sed 's/^/  /' >&2
    [ "$arrived" = "$sent" ] && [ "$gaps" = 0 ] && grep -q 'recorderConnects=1 ' "$folder/log" || exit 1
  done
  exit
fi

[ $# -gt 0 ] || set -- TCP UDP Java JavaBlock
command -v tcpdump >/dev/null || skip "the road needs tcpdump to compare with"
for way in TCP UDP; do
  declare "bare_$way=$(ip netns exec $tap "$build/bench/road/road_bare" $way 1000000)"
done
highest tcpdump
dumped=$rate
printf '%-10s %12s %14s %22s %18s\n' way frames/s us/frame "us / bare send() loop" "frames/s / tcpdump"
printf '%-10s %12s %14s\n' tcpdump "$dumped" "$price" "bare TCP" - "$bare_TCP" "bare UDP" - "$bare_UDP"
for way; do
  highest "$way"
  bare=bare_$way
  [ -n "${!bare:-}" ] || bare=bare_TCP
  ratios=$(awk "BEGIN {printf \"%.2f %.2f\", $price / ${!bare}, $rate / $dumped}" 2>/dev/null || echo "- -")
  printf '%-10s %12s %14s %22s %18s\n' "$way" "$rate" "$price" $ratios
done
