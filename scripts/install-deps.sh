#!/usr/bin/env bash
# Installs every Debian package that building, testing and benchmarking need.
# Idempotent: when everything is present it prints nothing and touches nothing.
set -euo pipefail

packages=(
  # build
  build-essential g++ cmake ninja-build pkg-config python3
  # libraries
  qt6-base-dev qt6-base-dev-tools qt6-tools-dev qt6-tools-dev-tools libqt6svg6 qt6-translations-l10n
  libgl-dev libpcap-dev nlohmann-json3-dev libsystemd-dev prometheus-cpp-dev
  # tests and benchmarks (prometheus: the metrics test scrapes the program with a real server)
  prometheus
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  clang libclang-rt-14-dev
  # registries the name tables are generated from (only the generator script reads them)
  ieee-data libwireshark-data
  # oracles and tools the tests drive
  tcpdump tshark tcpflow curl openssl xvfb xauth iputils-ping iproute2 procps
  # systemd-analyze verify checks the service unit
  systemd
  # the package: manual pages, shared-library dependencies, capabilities
  scdoc dpkg-dev libcap2-bin ccache
  # make systemtest boots the package's service in a Debian 12 container
  debootstrap systemd-container
  fonts-dejavu-core imagemagick
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
  SUDO=sudo
else
  SUDO=
fi
echo "install-deps: installing ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
# wireshark-common asks whether non-root users may capture; answer it up front.
echo "wireshark-common wireshark-common/install-setuid boolean false" | $SUDO debconf-set-selections
$SUDO apt-get update -qq >/dev/null
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
