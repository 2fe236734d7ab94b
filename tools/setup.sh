# Sourced by quickstart.sh and test.sh, from the root of the project: installs what is missing and builds, quietly.

RUN_PACKAGES="openjdk-17-jdk-headless libpcap-dev liblog4cxx-dev"
BUILD_PACKAGES="$RUN_PACKAGES g++ cmake ninja-build pkg-config"
CLUSTER_PACKAGES="rabbitmq-server librabbitmq-client-java python3"
TEST_PACKAGES="$BUILD_PACKAGES $CLUSTER_PACKAGES libgtest-dev libbenchmark-dev clang libclang-rt-14-dev ccache \
  iproute2 ethtool tcpreplay tcpdump sip-tester binutils dpkg-dev adduser systemd procps strace prometheus \
  chromium chromium-driver stunnel4 openssl"

export JAVA_HOME=${JAVA_HOME_17:-/usr/lib/jvm/java-17-openjdk-$(dpkg --print-architecture 2>/dev/null || echo amd64)}

as_root() { if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi; }

# quietly WHAT COMMAND...: shows what the command printed only when it fails.
quietly() {
  local what=$1 log
  shift
  log=$(mktemp)
  if ! "$@" >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    echo "$what failed; the last lines are above, all of it is in $log" >&2
    exit 1
  fi
  rm -f "$log"
}

install_missing() {
  local package missing=()
  for package in "$@"; do
    dpkg-query -W -f='${Status}\n' "$package" 2>/dev/null | grep -q '^install ok installed$' || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  if ! command -v apt-get >/dev/null; then
    echo "This needs Debian 12 or a relative of it. Elsewhere install these packages by hand: ${missing[*]}" >&2
    exit 1
  fi
  if [ "$(id -u)" != 0 ] && ! command -v sudo >/dev/null; then
    echo "Run this as root, or install sudo, to add these packages: ${missing[*]}" >&2
    exit 1
  fi
  echo "Installing ${missing[*]}"
  quietly "apt-get update" as_root apt-get update
  quietly "apt-get install" as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}"
}

# build PRESET [TARGET...]
build() {
  local preset=$1
  shift
  [ -e "build/$preset/build.ninja" ] || echo "Building ($preset); the first time takes a few minutes"
  quietly "Configuring ($preset)" cmake --preset "$preset"
  quietly "Building ($preset)" cmake --build "build/$preset" ${1:+--target "$@"}
}
