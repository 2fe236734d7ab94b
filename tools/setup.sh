# Sourced by quickstart.sh and test.sh from the root of the project. Installs missing packages and builds.

BUILD_PACKAGES="openjdk-17-jdk-headless libpcap-dev liblog4cxx-dev g++ cmake ninja-build pkg-config"
CLUSTER_PACKAGES="rabbitmq-server librabbitmq-client-java python3"

export JAVA_HOME=${JAVA_HOME_17:-/usr/lib/jvm/java-17-openjdk-$(dpkg --print-architecture 2>/dev/null || echo amd64)}

as_root() { if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi; }

# Prints a line. On a terminal it replaces the line that shows progress.
say() { if [ -t 1 ]; then printf '\r\033[K%s\n' "$*"; else printf '%s\n' "$*"; fi; }

# quietly WHAT COMMAND...: shows the output of the command only when it fails.
quietly() {
  local what=$1 log
  shift
  log=$(mktemp)
  "$@" >"$log" 2>&1 || give_up "$what" "$log"
  rm -f "$log"
}

give_up() {
  say "$(tail -n 40 "$2")" >&2
  echo "$1 failed. The last lines are above, all lines are in $2." >&2
  exit 1
}

# missing PACKAGE...: prints those that are not installed.
missing() {
  local package
  for package in "$@"; do
    dpkg-query -W -f='${Status}\n' "$package" 2>/dev/null | grep -q '^install ok installed$' || echo "$package"
  done
}

install_missing() {
  local packages
  packages=$(missing "$@" | tr '\n' ' ')
  [ -n "$packages" ] || return 0
  if ! command -v apt-get >/dev/null; then
    echo "This script installs packages on Debian 12 and its relatives. Please install by hand: $packages" >&2
    exit 1
  fi
  if [ "$(id -u)" != 0 ] && ! command -v sudo >/dev/null; then
    echo "Please run this script as root, or install sudo. It needs these packages: $packages" >&2
    exit 1
  fi
  say "Installing $packages"
  quietly "apt-get update" as_root apt-get update
  quietly "apt-get install" as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends $packages
}

# build PRESET [TARGET...]: without targets it builds those of the preset. Shows progress.
build() {
  local preset=$1 log
  shift
  if [ "$preset" = quickstart ] && [ -e build/release/build.ninja ]; then
    quietly "Configuring ($preset)" cmake build/release  # test.sh may have configured it with tests
  else
    quietly "Configuring ($preset)" cmake --preset "$preset"
  fi
  log=$(mktemp)
  # Tests that run during a build have priority on the processor.
  NINJA_STATUS='[%f of %t] ' nice cmake --build --preset "$preset" ${1:+--target "$@"} 2>&1 |
    tee "$log" | show_progress "$preset"
  [ "${PIPESTATUS[0]}" = 0 ] || give_up "Building ($preset)" "$log"
  rm -f "$log"
}

# Reads ninja's output. Shows one line that changes on a terminal, and a line every 30 seconds elsewhere.
show_progress() {
  local line next=0
  while read -r line; do
    if [[ ! $line =~ ^\[([1-9][0-9]*\ of\ [0-9]+)\] ]]; then continue; fi
    if [ -t 1 ]; then
      printf '\r\033[KBuilding (%s): %s' "$1" "${BASH_REMATCH[1]}"
    elif [ $SECONDS -ge $next ]; then
      echo "Building ($1): ${BASH_REMATCH[1]}"
      next=$((SECONDS + 30))
    fi
  done
  if [ -t 1 ]; then printf '\r\033[K'; fi
}
