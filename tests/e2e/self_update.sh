#!/usr/bin/env bash
# The agent starts the update of itself, from within its own service.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh || exit

wait_for_record() {
  for _ in {1..1200}; do
    if [ -e $log ] && log_records | grep -qxF "$1"; then return; fi
    sleep 0.1
  done
  say "waited for: $1"
}

# The older agent, running, starts the update and is asked for what has become of it.
update_itself() {
  quiet dpkg -i /qd/old.deb
  systemctl restart qdagent
  expect_agent active 7.2.1.4
  systemctl kill --kill-whom=main --signal=USR1 qdagent
  wait_for_record "NFY Agent Update done"
  expect "started within the service" "$(grep -o "/qdagent.service\$" /qd/cgroup | sort -u)" /qdagent.service
  expect_commands_succeeded
  expect "first record" "$(log_records | head -n 1)" "NFY Check Update"
  expect "warnings" "$(log_records | grep "^WRN")" ""
  expect "installed version" "$(agent_deb_version)" 7.2.1.15
  expect_agent active 7.2.1.15
}

make_agent_deb 7.2.1.4 /qd/old.deb
make_agent_deb 7.2.1.15 /qd/new.deb
mkdir /etc/qdagent
# shellcheck disable=SC2016
printf '#!/bin/sh\ncat /proc/self/cgroup >/qd/cgroup\nexec /qd/update "$(cat /qd/address)" 7.2.1.4\n' >/etc/qdagent/update
chmod 755 /etc/qdagent/update

for bus in "a bus" "no bus"; do
  begin "the agent starts its own updater, which outlives the agent's stop: with $bus to systemd"
  offer 7.2.1.15 /qd/new.deb
  hex_address "$server_url" >/qd/address
  [ "$bus" = "a bus" ] || quiet systemctl stop dbus.socket dbus.service
  update_itself
done
finish
