#!/usr/bin/env bash
# Records calls with the sniffer inside a Java process.
#   ./quickstart.sh           the calls of samples/, replayed
#   ./quickstart.sh eth0      the calls that pass the device, until Ctrl-C
#   ./quickstart.sh --help    more
set -euo pipefail
cd "$(dirname "$0")"

usage() {
  cat <<'HELP'
Usage: ./quickstart.sh [--standalone | --cluster] [DEVICE]

Installs the packages it needs, builds, and records every call it sees into recordings/. The page index.html there shows
and plays the calls in a browser. Without DEVICE it replays the calls of samples/.

  --standalone  run the sniffer as a program that sends to the recorder over TCP, instead of in the recorder's process
  --cluster     put a broker between the sniffer and two recorders, as more than one machine would (docs/scaling.md)
HELP
}

standalone=no
cluster=no
device=
for argument in "$@"; do
  case $argument in
    --standalone) standalone=yes ;;
    --cluster) cluster=yes ;;
    --help | -h) usage; exit 0 ;;
    -*) usage >&2; exit 1 ;;
    *) device=$argument ;;
  esac
done
if [ -n "$device" ] && [ ! -e "/sys/class/net/$device" ] && [ "${device#file:}" = "$device" ]; then
  echo "There is no device $device here. The devices are: $(ls /sys/class/net | tr '\n' ' ')" >&2
  exit 1
fi

. tools/setup.sh
packages=$BUILD_PACKAGES
targets=sniffer_jar
if [ $standalone = yes ]; then targets+=" sniffer_standalone"; else targets+=" sniffer"; fi
if [ $cluster = yes ]; then packages+=" $CLUSTER_PACKAGES" targets+=" sniffer_cluster_jar"; fi
install_missing $packages
build quickstart $targets

# Everything runs in recordings/: in a Java process the sniffer reads its logging settings from the working directory.
root=$PWD
mkdir -p recordings
cd recordings
sed 's/^log4j.rootLogger=.*/log4j.rootLogger=INFO, file/' "$root/packaging/log4cxx.properties" >log4cxx.properties

# H.323 signalling uses TCP, on ports that the endpoints choose. Calls are IPv4 or IPv6.
filter="udp or tcp"
built=$root/build/release
java=("$JAVA_HOME/bin/java" "-Djava.library.path=$built/sniffer" -jar "$built/host/voip-sniffer.jar")
recorder=("${java[@]}" --out "$PWD")
may_capture=()

# record DEVICES...: records one list of devices after the other.
record() {
  local devices options=(--filter "$filter")
  if [ $standalone = no ]; then
    for devices in "$@"; do options+=(--embedded "$devices"); done
    case $1 in file:*) options+=(--idle-exit 3) ;; esac
    "${may_capture[@]}" "${recorder[@]}" "${options[@]}"
    return
  fi
  for devices in "$@"; do record_standalone "$devices"; done
}

record_standalone() {
  local devices=$1
  # The sample recorder understands the frames with capture times and those with IPv6 addresses.
  sed -e "s|^Device=.*|Device=$devices|" -e "s|^Filter=.*|Filter=$filter|" -e 's|^CaptureTime=.*|CaptureTime=yes|' \
    -e 's|^#IPv6=yes|IPv6=yes|' "$root/packaging/sniffer.properties" >sniffer.properties
  : >recorder.log
  exec {output}> >(exec tee recorder.log)
  showing=$!
  "${recorder[@]}" --tcp 6000 --ipv6 --until-disconnect >&$output &
  recording=$!
  exec {output}>&-
  trap 'kill $recording 2>/dev/null || true' EXIT
  # The recorder must listen before the sniffer starts: the sniffer connects then, and later only to send something.
  until grep -q 'waiting for the sniffer' recorder.log; do
    kill -0 $recording 2>/dev/null || exit 1
    sleep 0.1
  done
  "${may_capture[@]}" "$built/standalone/sniffer"
  wait $recording
  wait $showing
}

if [ $cluster = yes ]; then
  # The process with the sniffer publishes to the broker and records nothing. Two recorders consume from the broker.
  . "$root/tools/cluster-trial.sh"
  recorder=("${java[@]}" --publish "$broker_address" --out "$PWD/front")
fi

echo "The sniffer's log is recordings/sniffer.log"
case $device in
  "")
    echo "Replaying the three calls of samples/, which takes half a minute"
    # The last two calls are between the same telephones, so they follow each other.
    record "file:../samples/sip-g711a-call.pcap;file:../samples/h323-fast-start-tunnelled.pcap" \
      "file:../samples/h323-h245-separate.pcap"
    ;;
  file:/*) record "$device" ;;
  file:*) record "file:../${device#file:}" ;;
  *)
    # Capturing needs privilege; replaying does not.
    [ "$(id -u)" = 0 ] || may_capture=(sudo)
    echo "Recording the calls on $device; Ctrl-C ends it"
    record "$device"
    ;;
esac

if [ $cluster = yes ]; then show_spread; fi
