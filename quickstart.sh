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

Installs the packages it needs, builds, and records every call it sees into recordings/, where index.html shows and plays
them in a browser. Without DEVICE it replays the calls of samples/.

  --standalone  run the sniffer as a program of its own that sends to the recorder over TCP, instead of in its process
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
if [ $cluster = yes ]; then install_missing $BUILD_PACKAGES $CLUSTER_PACKAGES; else install_missing $BUILD_PACKAGES; fi
build quickstart

# Everything runs in recordings/: the sniffer in a Java process takes its logging settings from the working directory.
root=$PWD
mkdir -p recordings
cd recordings
sed 's/^log4j.rootLogger=.*/log4j.rootLogger=INFO, file/' "$root/packaging/log4cxx.properties" >log4cxx.properties

# H.323 signalling is TCP, on ports of the endpoints' choice.
filter="ip and (udp or tcp)"
built=$root/build/quickstart
java=("$JAVA_HOME/bin/java" "-Djava.library.path=$built/sniffer" -jar "$built/host/voip-sniffer.jar")
recorder=("${java[@]}" --out "$PWD")
may_capture=()

# record DEVICES...: one list of devices after the other.
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
  # The sample recorder knows the frames that tell when others were captured.
  sed -e "s|^Device=.*|Device=$devices|" -e "s|^Filter=.*|Filter=$filter|" -e 's|^CaptureTime=.*|CaptureTime=yes|' \
    "$root/packaging/sniffer.properties" >sniffer.properties
  "${recorder[@]}" --tcp 6000 --until-disconnect &
  recording=$!
  trap 'kill $recording 2>/dev/null || true' EXIT
  # The sniffer tries to connect when it starts, and then only when it has something to send.
  for _ in $(seq 100); do
    kill -0 $recording 2>/dev/null || exit 1
    if grep -qs ':1770 .* 0A ' /proc/net/tcp /proc/net/tcp6; then break; fi  # 1770 is 6000, 0A listens
    sleep 0.1
  done
  "${may_capture[@]}" "$built/standalone/sniffer"
  wait $recording
}

if [ $cluster = yes ]; then
  # The sniffer's side becomes a front, which records nothing; two recorders of their own take what it publishes.
  . "$root/tools/cluster-trial.sh"
  recorder=("${java[@]}" --publish "$broker_address" --out "$PWD/front")
fi

echo "The sniffer's log is recordings/sniffer.log"
case $device in
  "")
    echo "Replaying the three calls of samples/, which takes half a minute"
    # The last by itself: it is a call between the same two telephones as the one before.
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
