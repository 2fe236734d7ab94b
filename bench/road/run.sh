#!/usr/bin/env bash
# Measures the path of a packet from a device to a recorder on the same machine: the highest rate of RTP frames (214
# bytes, all requested) without loss, and the processor time of the sniffer per frame.
#
#   bench/road/run.sh [BUILD] [WAY...]     BUILD: default build/release. WAY: TCP, UDP, Java, JavaBlock; default all
#   bench/road/run.sh BUILD pause [RATE...]  stops a TCP recorder for three of eight seconds, at each rate;
#                                          status 1 when a frame is lost or repeated, or the connection changes
#   bench/road/run.sh BUILD memory         only the frames from memory
#   bench/road/run.sh BUILD check          runs a moderate rate only; status 1 when a frame is lost
#
# Needs root, iproute2, ethtool and tcpdump. It makes two network namespaces and removes them. Environment: ROAD_SECONDS
# (2) is the length of a trial, ROAD_MOST (1600000) the highest rate, ROAD_FLOWS (1) the number of RTP streams,
# ROAD_SETTINGS (SendTimeout=5000) are further settings of the stand-alone sniffer.
#
# The last column says which part ended the measurement. At the end the frames come from memory instead of a device:
# what the sniffer alone does, whatever the sender reaches.
set -euo pipefail
export LC_ALL=C

here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../../build/release}" && pwd)
shift || true
seconds=${ROAD_SECONDS:-2}
most=${ROAD_MOST:-1600000}
flows=${ROAD_FLOWS:-1}
immediate=yes
latest=$((100 * seconds + 200))  # milliseconds after the last frame was sent

skip() { echo "SKIPPED: $*"; exit 77; }
[ "$(id -u)" = 0 ] || skip "bench/road needs root, for network namespaces"
for tool in ip ethtool; do command -v $tool >/dev/null || skip "bench/road needs $tool"; done
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
# Frames that the kernel dropped between the sender's device and the sniffer's.
backlog_drops() {
  local drops all=0
  while read -r _ drops _; do all=$((all + 16#$drops)); done </proc/net/softnet_stat
  echo $all
}
idle_ticks() { awk '/^cpu / {print $5 + $6}' /proc/stat; }
thread_ticks() {  # PROCESS: prints number, name and processor time of each thread
  local thread
  for thread in /proc/"$1"/task/*; do
    echo "${thread##*/} $(tr ' ' _ <"$thread/comm") $(sed 's/.*) //' "$thread/stat" | awk '{print $12 + $13}')"
  done
}
busiest_thread() {  # BEFORE AFTER: prints number, name and ticks of the thread that used the most processor time
  awk 'NR == FNR {before[$1] = $3; next} {print $1, $2, $3 - before[$1]}' <(echo "$1") <(echo "$2") |
    sort -k3 -n -r | head -n 1
}

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

find_limit() {  # BEFORE AFTER IDLE DROPS: leaves in $limit what ended a trial; uses the figures of trial()
  local number name used percent
  read -r number name used < <(busiest_thread "$1" "$2")
  percent=$(awk "BEGIN {printf \"%d\", 100 * $used / ($took * $(getconf CLK_TCK))}")
  if [ "$way" != Java ] && [ "$number" = "$sniffer" ]; then name=consumer; else name="thread $name"; fi
  if awk "BEGIN {exit !($took >= $seconds * 1.03)}"; then
    limit="the sender ($busy % of a core)"
  elif [ "$percent" -ge 85 ]; then
    limit="the sniffer's $name ($percent % of a core)"
  elif [ "$4" -gt 0 ]; then
    limit="the kernel's queue of received frames (net.core.netdev_max_backlog)"
  elif awk "BEGIN {exit !($3 < 0.1 * $took * $(getconf CLK_TCK) * $(nproc))}"; then
    limit="the processor, which all parts share"
  else
    limit="the recorder, or a pause of the machine"
  fi
}

trial() {  # WAY RATE: true when nothing was lost; leaves $cost, in microseconds a frame, $text and $limit
  local way=${1/JavaBlock/Java} frames=$(($2 * seconds)) before after sent took busy arrived gaps late=0
  local threads idle drops
  if [ "$1" = tcpdump ]; then
    start tcpdump -i tap0 -B 32768 -w /dev/null udp 2>"$folder/log"
    sniffer=${pids[-1]}
    await "$folder/log" 'listening on' >/dev/null
  else
    start_sniffer "$1" $frames
  fi
  before=$(ticks "$sniffer")
  threads=$(thread_ticks "$sniffer") idle=$(idle_ticks) drops=$(backlog_drops)
  read -r sent took busy < <(send "$2" "$seconds" "$flows")
  find_limit "$threads" "$(thread_ticks "$sniffer")" $(($(idle_ticks) - idle)) $(($(backlog_drops) - drops))
  if [ "$1" = tcpdump ]; then
    sleep 1.2  # the kernel delivers a partly filled block after a second
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

highest() {  # WAY: leaves the highest rate without loss in $rate, its $price, and in $ended what ended the search
  local low=0 high=$((most + 1)) next=100000
  price=- ended="none up to $most"
  while [ $((high - low)) -gt $((low / 10 + 10000)) ] && [ $next -le "$most" ]; do
    if trial "$1" $next; then low=$next price=$cost; else high=$next ended=$limit; fi
    echo "  $1 at $next a second: $text" >&2
    next=$((high > most ? low * 2 : (low + high) / 2000 * 1000))
    [ $low -lt "$most" ] && [ $next -gt "$most" ] && next=$most
    [ $low = "$most" ] && break
  done
  rate=$low
}

# Each way with frames from memory, fed by one thread and by two.
from_memory() {
  local way threads port fed consumed rate
  printf '%-14s %18s %18s %18s\n' "from memory" "ns to queue" "ns to forward" frames/s
  for way in TCP UDP; do
    for threads in 1 2; do
      start "${ahead[@]}" "$build/bench/road/road_recorder" $way 2000000 >"$folder/recorder"
      port=$(await "$folder/recorder" '^[0-9]+$')
      read -r fed consumed rate < <(ip netns exec $tap "$build/bench/road/road_feed" $way "$port" 2000000 $threads)
      stop -KILL
      printf '%-14s %18s %18s %18s\n' "$way, $threads fed" "$fed" "$consumed" "$rate"
    done
  done
}

if [ "${1:-}" = memory ]; then
  from_memory
  exit
fi

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
command -v tcpdump >/dev/null || skip "bench/road needs tcpdump to compare with"
for way in TCP UDP; do
  declare "bare_$way=$(ip netns exec $tap "$build/bench/road/road_bare" $way 1000000)"
done
highest tcpdump
dumped=$rate
line='%-10s %12s %14s %22s %18s   %s\n'
printf "$line" way frames/s us/frame "us / bare send() loop" "frames/s / tcpdump" "ended by"
printf "$line" tcpdump "$dumped" "$price" - - "$ended" "bare TCP" - "$bare_TCP" - - - "bare UDP" - "$bare_UDP" - - -
for way; do
  highest "$way"
  bare=bare_$way
  [ -n "${!bare:-}" ] || bare=bare_TCP
  ratios=$(awk "BEGIN {printf \"%.2f %.2f\", $price / ${!bare}, $rate / $dumped}" 2>/dev/null || echo "- -")
  printf "$line" "$way" "$rate" "$price" $ratios "$ended"
done
from_memory
