#!/usr/bin/env bash
# The packages: installed, upgraded while an update runs, removed and purged: packaged.sh KIND.
# shellcheck disable=SC2086,SC2317 # commands of several words; functions that await calls

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh || exit

# package COMMAND...: by the package manager, which must not wait for a run.
package() { quiet timeout 60 "$@"; }

# Everything that is there, but for the package managers' own and what the machine writes all the time.
files() {
  find /etc /usr /var /tmp \( -path /var/cache -o -path /var/log -o -path /var/lib/dpkg -o -path /var/lib/rpm \
    -o -path /var/lib/systemd \) -prune -o ! -type d -print | TMPDIR=/qd sort
}

# left_since LIST: the files that have come and those that have gone since.
left_since() { diff <(say "$1") <(files) | grep '^[<>]' || true; }

unit() { systemctl show --value --property "$2" "$1"; }

# await WHAT COMMAND...: within a minute the command succeeds.
await() {
  for _ in {1..600}; do
    if "${@:2}"; then return; fi
    sleep 0.1
  done
  expect "$1" "$(journalctl --unit qd-update)" "within a minute"
}

fetches() { [ "$(told phase 2>/dev/null)" = fetch ]; }
has_ended() { [ "$(unit qd-update ActiveState)" != activating ]; }

# Agents come slowly.
furnish() { head -c 600K /dev/urandom >"$1/usr/sbin/qdagent.data"; }

# What rpm wants to know of a system that it did not install.
provide_base() {
  local provided
  mapfile -t provided < <(rpm -qp --requires /qd/packages/qd-update-*.rpm | grep -v '^rpmlib' | sort -u)
  mkdir -p /qd/base
  make_rpm base 1 /qd/base /qd/base.rpm "${provided[@]/#/Provides: }"
  quiet rpm -U /qd/base.rpm
}

install_package() {
  begin "installed, it does nothing by itself"
  before=$(files)
  package $install /qd/packages/qd-update[-_]*."$kind"
  expect "timer" "$(systemctl is-enabled qd-update.timer) $(unit qd-update.timer ActiveState)" "disabled inactive"
  expect "recovery" "$(systemctl list-dependencies --plain multi-user.target | grep -o 'qd-update.*')" \
    qd-update-recover.service
  systemctl start qd-update.service
  expect "a run without settings" "$(unit qd-update ConditionResult)" no
  expect "faults of units" "$(systemd-analyze verify /usr/lib/systemd/system/qd-update*.{service,timer} 2>&1)" ""
}

# The timer is enabled; a run of the service downloads when the package is upgraded.
upgrade_during_update() {
  begin "an update survives the upgrade of its program"
  package $install /qd/agent-7.2.1.4."$kind"
  systemctl daemon-reload
  systemctl restart qdagent
  offer 7.2.1.15 /qd/agent-7.2.1.15."$kind"
  mkdir -p /etc/qd
  printf '%s\n' "server = '$server_url'" "fetch.rate = '100KiB'" "health.settle = '1s'" >/etc/qd/update.toml
  quiet systemctl enable --now qd-update.timer qd-update@a2.timer
  systemctl start --no-block qd-update.service
  await "a download" fetches
  local process
  process=$(unit qd-update MainPID)
  package $install /qd/packages/next/qd-update[-_]*."$kind"
  expect "the run" "$(unit qd-update MainPID) $(readlink "/proc/$process/exe")" \
    "$process /usr/sbin/qd-update (deleted)"
  await "the end of the run" has_ended
  expect "outcome" "$(told outcome) $(told to) $(unit qd-update Result)" "updated 7.2.1.15 success"
  expect_agent active 7.2.1.15
  quiet logrotate --state /qd/rotated --force /usr/share/doc/qd-update/examples/logrotate
  expect "logs" "$(ls /tmp/agent_upd.*)" "$log.1"
  expect "timer" "$(systemctl is-enabled qd-update.timer) $(unit qd-update.timer ActiveState)" "enabled active"
}

remove_package() {
  say "- removed, it leaves logs and records"
  package $remove qd-update
  expect "timer" "$(unit qd-update.timer ActiveState)" inactive
  package $remove qdagent
  rm -r /etc/qd
  expect "files" "$(left_since "$before" | grep -v "^> $state/")" "> $log.1"
  [ "$(told outcome)" = updated ] || expect "record" "$(told outcome)" updated
}

purge_package() {
  say "- purged, it leaves nothing"
  mkdir -p /etc/qd/conf.a2 /var/agent/UpdLogs /var/lib/qd/update.a2
  printf '/var/agent\n' >/etc/qd/conf.a2/dbdir.cfg
  printf '[report]\ntextfile = "/var/agent"\n' >/etc/qd/update.a2.toml
  touch /var/agent/UpdLogs/agent_upd.{log,bak} /var/lib/qd/update.a2/status.json /tmp/agent_upd.log \
    /var/agent/qd_update.prom
  quiet dpkg --purge qd-update
  expect "folders" "$(ls -d /var/lib/qd /var/agent/UpdLogs 2>/dev/null)" ""
  rm -r /etc/qd
  expect "files" "$(left_since "$before")" ""
}

rm -f /usr/sbin/policy-rc.d # a container's, which keeps units from being stopped
make_agent 7.2.1.4 "/qd/agent-7.2.1.4.$kind"
make_agent 7.2.1.15 "/qd/agent-7.2.1.15.$kind"
[ "$kind" = deb ] || provide_base
install_package
upgrade_during_update
remove_package
[ "$kind" = rpm ] || purge_package
finish
