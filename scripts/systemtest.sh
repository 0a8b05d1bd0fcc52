#!/usr/bin/env bash
# The packaged service under a real systemd: builds the Debian package, boots a Debian 12
# container with systemd (debootstrap + systemd-nspawn, with a network namespace of its own),
# installs the package in it as an administrator would, configures the service with
# vormelt-cli settings set, and for every mode that runs headless starts it, checks that it is
# active, that its STATUS counts pings on the container's loopback, and that it stops cleanly;
# a mode that needs a display must end with status 78 and never be restarted.
# Skips, saying why, where no container can be booted (not root, no debootstrap, no mirror).
set -uo pipefail
cd "$(dirname "$0")/.."

CACHE=${VORMELT_SYSTEMTEST_CACHE:-/var/cache/vormelt-systemtest}
MIRROR=${VORMELT_SYSTEMTEST_MIRROR:-http://deb.debian.org/debian}
# What the container needs besides the package: systemd itself, ping, and (read from the
# package below) its dependencies, so installing the .deb needs no network.
BASE_INCLUDE=systemd,systemd-sysv,dbus,iputils-ping

skip() { echo "systemtest: skipped: $*"; exit 0; }
fail() { echo "systemtest: FAILED: $*"; failures=$((failures + 1)); }
failures=0
checks=0
pass() { echo "systemtest: ok: $*"; checks=$((checks + 1)); }

[ "$(id -u)" -eq 0 ] || skip "booting a container needs root"
command -v debootstrap >/dev/null || skip "debootstrap is not installed (scripts/install-deps.sh installs it)"
command -v systemd-nspawn >/dev/null || skip "systemd-nspawn is not installed (package systemd-container)"

# 1. The package, built as `make package` builds it.
deb=$(make -s package | tail -n 1)
[ -f "$deb" ] || { echo "systemtest: FAILED: make package made no .deb"; exit 1; }

depends=$(dpkg-deb -f "$deb" Depends | tr ',' '\n' | sed 's/[(|].*//; s/ //g' | grep . | sort -u | paste -sd,)
INCLUDE=$BASE_INCLUDE,$depends

# 2. A Debian 12 root with systemd, made once and kept (made again when the list changes).
root_cache=$CACHE/bookworm
if [ "$(cat "$root_cache.include" 2>/dev/null)" != "$INCLUDE" ]; then
  rm -rf "$root_cache" "$root_cache.include"
  mkdir -p "$CACHE"
  echo "systemtest: making a Debian 12 root in $root_cache (once)"
  if ! debootstrap --variant=minbase --include="$INCLUDE" bookworm "$root_cache.new" "$MIRROR" \
       >"$CACHE/debootstrap.log" 2>&1; then
    rm -rf "$root_cache.new"
    skip "debootstrap could not make a Debian 12 root (see $CACHE/debootstrap.log)"
  fi
  mv "$root_cache.new" "$root_cache"
  echo "$INCLUDE" >"$root_cache.include"
fi

work=$(mktemp -d /var/tmp/vormelt-systemtest.XXXXXX)
root=$work/root
nspawn_pid=
cleanup() {
  if [ -n "$nspawn_pid" ] && kill -0 "$nspawn_pid" 2>/dev/null; then
    kill -TERM "$nspawn_pid" 2>/dev/null  # an orderly power-off of the booted container
    for _ in $(seq 1 100); do kill -0 "$nspawn_pid" 2>/dev/null || break; sleep 0.1; done
    kill -KILL "$nspawn_pid" 2>/dev/null
    wait "$nspawn_pid" 2>/dev/null
  fi
  rm -rf "$work"
}
trap cleanup EXIT
cp -a "$root_cache" "$root"
cp "$deb" "$root/root/"

# 3. Installed as an administrator installs it; the container is not booted yet.
if ! systemd-nspawn -q -D "$root" --register=no --keep-unit --private-network sh -c "dpkg -i /root/$(basename "$deb")" \
     >"$work/install.log" 2>&1; then
  cat "$work/install.log"
  echo "systemtest: FAILED: the package did not install"
  exit 1
fi
pass "dpkg -i $(basename "$deb")"

# 4. Boot it.
systemd-nspawn -q -D "$root" --boot --register=no --keep-unit --console=passive --private-network \
  >"$work/boot.log" 2>&1 &
nspawn_pid=$!
# The container's init is the child of systemd-nspawn that runs systemd (nspawn's own helper
# child comes and goes before it).
leader=
for _ in $(seq 1 200); do
  for child in $(cat /proc/"$nspawn_pid"/task/*/children 2>/dev/null); do
    [ "$(cat /proc/"$child"/comm 2>/dev/null)" = systemd ] && leader=$child
  done
  [ -n "$leader" ] && break
  sleep 0.1
done
[ -n "$leader" ] || { cat "$work/boot.log"; echo "systemtest: FAILED: the container did not boot"; exit 1; }
inside() { nsenter -t "$leader" -a "$@"; }
# Until its manager's socket is there, systemctl cannot ask it anything.
state=
for _ in $(seq 1 300); do
  state=$(timeout 60 nsenter -t "$leader" -a systemctl is-system-running --wait 2>"$work/running.log")
  [ -n "$state" ] && [ "$state" != offline ] && break
  sleep 0.2
done
case $state in
  running | degraded) pass "container booted ($state)" ;;
  *) cat "$work/boot.log" "$work/running.log"; echo "systemtest: FAILED: systemd in the container is '$state'"; exit 1 ;;
esac

# Capture rights belong to the group: its member captures without sudo, others cannot run it.
program=/usr/libexec/hollowbright-vormelt/vormelt-cli
perms=$(inside stat -c '%U:%G %a' "$program")
[ "$perms" = "root:vormelt 750" ] && pass "vormelt-cli is $perms" || fail "vormelt-cli is '$perms'"
caps=$(inside getcap "$program")
[[ $caps == *cap_net_admin,cap_net_raw=eip* ]] && pass "capabilities: ${caps#* }" || fail "capabilities: '$caps'"
inside useradd --create-home --groups vormelt member
inside useradd --create-home outsider
(sleep 1; inside ping -c 6 -i 0.3 127.0.0.1 >/dev/null 2>&1) &
pinger=$!
captured=$(inside runuser -u member -- timeout 20 vormelt-cli packets --live 127.0.0.1 --count 3 2>"$work/member.err")
wait "$pinger"
[ "$(printf '%s\n' "$captured" | grep -c .)" -eq 3 ] && pass "a member of vormelt captures 3 packets without sudo" ||
  fail "a member of vormelt could not capture: $(cat "$work/member.err")"
refused=$(inside runuser -u outsider -- sh -c 'vormelt-cli --version; echo "status $?"' 2>&1)
[[ $refused == *"members of the group vormelt"*"sudo adduser outsider vormelt"*"status 126"* ]] &&
  pass "a user outside vormelt is told which group captures" || fail "a user outside vormelt: $refused"

# What systemd says of the service.
show() { inside systemctl show -P "$1" hbvormelt.service; }
settings() { inside vormelt-cli settings set "$1" "$2" --config /etc/hollowbright/vormelt >/dev/null; }

settings interface.address 127.0.0.1 || fail "vormelt-cli settings set interface.address"
settings fileMode.folder /var/lib/hbvormelt/files || fail "vormelt-cli settings set fileMode.folder"

# Waits until the STATUS text matches the pattern; prints the last one.
await_status() {
  local pattern=$1 text=
  for _ in $(seq 1 100); do
    text=$(show StatusText)
    [[ $text =~ $pattern ]] && { echo "$text"; return 0; }
    sleep 0.2
  done
  echo "$text"
  return 1
}

# mode number, name, the STATUS pattern once pings were seen
run_mode() {
  local mode=$1 name=$2 counted=$3 status
  settings general.rememberedMode "$mode" || { fail "$name: settings set general.rememberedMode"; return; }
  inside systemctl reset-failed hbvormelt.service 2>/dev/null
  if ! inside systemctl start hbvormelt.service; then
    fail "$name: systemctl start"
    inside journalctl -u hbvormelt --no-pager -n 20
    return
  fi
  [ "$(inside systemctl is-active hbvormelt.service)" = active ] && pass "$name: active" ||
    fail "$name: not active"
  status=$(await_status '^(Listening|Lausche|Empfange)') && pass "$name: STATUS '$status'" ||
    fail "$name: STATUS never said it listens: '$status'"
  inside ping -c 5 -i 0.2 -W 1 127.0.0.1 >/dev/null 2>&1
  if [ -n "$counted" ]; then
    status=$(await_status "$counted") && pass "$name: pings counted: '$status'" ||
      fail "$name: pings not counted: '$status'"
  fi
  # Served for Prometheus where the settings ask for it (curl from this machine, in the
  # container's network namespace).
  if [ "$mode" = 3 ]; then
    scraped=$(nsenter -t "$leader" -n curl -sf http://127.0.0.1:9477/metrics | grep '^vormelt_statistics_packets_total')
    [[ $scraped =~ \ [1-9][0-9]*$ ]] && pass "$name: metrics served: '$scraped'" ||
      fail "$name: no metrics at 127.0.0.1:9477: '$scraped'"
  fi
  inside systemctl stop hbvormelt.service
  [ "$(show Result)" = success ] && pass "$name: clean stop" ||
    fail "$name: stop result '$(show Result)', status $(show ExecMainStatus)"
}

run_mode 0 "Packet Mode" '; [1-9][0-9]* packets stored'
run_mode 1 "File Mode" ''
settings service.metricsListen 127.0.0.1:9477 || fail "settings set service.metricsListen"
run_mode 3 "Statistical Mode" '; [1-9][0-9]* packets counted'
settings service.metricsListen "" || fail "settings set service.metricsListen to nothing"

# A mode that needs a display: exit 78, and systemd does not try again.
settings general.rememberedMode 2 || fail "settings set general.rememberedMode 2"
inside systemctl reset-failed hbvormelt.service 2>/dev/null
inside systemctl start hbvormelt.service 2>/dev/null
sleep 7  # longer than RestartSec=, so a restart would have happened by now
main_status=$(show ExecMainStatus)
restarts=$(show NRestarts)
[ "$main_status" = 78 ] && [ "$restarts" = 0 ] && pass "Graphical Packets Mode: exit 78, no restart" ||
  fail "Graphical Packets Mode: status $main_status, $restarts restarts"

# Removing the package takes the group's grant away and leaves the settings alone.
inside dpkg -r hollowbright-vormelt >"$work/remove.log" 2>&1 || fail "dpkg -r: $(tail -n 3 "$work/remove.log")"
overrides=$(inside dpkg-statoverride --list | grep -c vormelt)
if [ "$overrides" = 0 ] && inside test -f /etc/hollowbright/vormelt/settings.json; then
  pass "dpkg -r: the group's grant is gone, the settings stay"
else
  fail "dpkg -r: $overrides overrides left, or the settings went"
fi

echo "systemtest: $checks passed, $failures failed"
[ "$failures" -eq 0 ]
