#!/usr/bin/env bash
# Updates without an update.toml, with the system's own package manager and systemctl: update.sh KIND.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh || exit

expect_updated() {
  expect_commands_succeeded
  expect "package" "$(there)" "$(whole 7.2.1.15)"
  expect_agent active 7.2.1.15
}

# The first time with a definition file, then with the built-in layout: the package under its fixed name.
whole_update() {
  begin "a whole update: $1"
  installed "/qd/7.2.1.4.$kind"
  cp "/qd/7.2.1.15.$kind" "/qd/$1"
  offer 7.2.1.15 "/qd/$1"
  [ "$1" != "setup.$kind" ] || rm $server/www/agent_setup_def.json
  update 7.2.1.4
  expect "status" "$status" 0
  expect "kind and command" "$(log_records | grep -E 'distrib is|install cmd')" "NFY distrib is [$kind]
NFY install cmd = $install /tmp/$1"
  expect_updated
}

changed_configuration_file() {
  begin "a configuration file that the administrator and the package have changed, and nobody who answers"
  installed /qd/configured_4.deb
  say "the administrator's" >/etc/qdagent/qdagent.conf
  offer 7.2.1.15 /qd/configured_15.deb
  mkfifo /qd/silent
  exec 3<>/qd/silent
  update 7.2.1.4 <&3
  exec 3>&-
  expect "status" "$status" 0
  expect "configuration" "$(cat /etc/qdagent/qdagent.conf)" "the administrator's"
  expect_updated
}

# x11_step RECORDS CALLS: an agent from before 7.2.0.0 is updated.
x11_step() {
  installed "/qd/7.1.5.2.$kind" 7.1.5.2
  offer 7.2.1.15 "/qd/7.2.1.15.$kind"
  rm -f /qd/installer.calls
  update 7.1.5.2
  expect "status" "$status" 0
  expect "records" "$(log_records | sed -n '/installX/,/Installed/p')" "NFY installXCBDeps ...
$1
NFY Agent Installed"
  expect "installer's calls" "$(sed 's/ libxcb1 .*//' /qd/installer.calls 2>/dev/null)" "$2"
  expect_agent active 7.2.1.15
}

# A package that brings libX11, so that the query finds it on every machine.
x11_cases() {
  local name=libx11 libraries=libxrender1
  if [ "$kind" = rpm ]; then
    name=libX11
    libraries="libXrender libxcb xcb-util xcb-util-keysyms xcb-util-image xcb-util-renderutil xcb-util-cursor xcb-util-wm \
libxkbcommon libxkbcommon-x11 fontconfig freetype libXext libX11-xcb libSM libICE"
  fi
  mkdir -p /qd/x11/usr/share/qd-sample
  : >/qd/x11/usr/share/qd-sample/libX11.so.6
  pack $name 1 /qd/x11 "/qd/x11.$kind"
  install -m 755 <(printf '#!/bin/sh\necho "$@" >>/qd/installer.calls\n') "/usr/bin/$installer"
  begin "without libX11 nothing is installed for it"
  x11_step "NFY X11 not found" ""
  begin "libX11 is installed: the agent's X11 libraries are, too"
  # shellcheck disable=SC2086
  quiet $force "/qd/x11.$kind"
  x11_step "NFY Found x11
NFY Install xcb dependencies0" "install -y $libraries"
}

wait_for_record() {
  for _ in {1..1200}; do
    if [ -e $log ] && log_records | grep -qxF "$1"; then return; fi
    sleep 0.1
  done
  say "waited for: $1"
}

# update_itself WHAT: the older agent, running, starts the update from within its own service and is asked for what has
# become of it.
update_itself() {
  begin "the agent starts its own updater, which outlives the agent's stop: with $1 to systemd"
  offer 7.2.1.15 "/qd/7.2.1.15.$kind"
  hex_address "$server_url" >/qd/address
  installed "/qd/7.2.1.4.$kind"
  systemctl kill --kill-whom=main --signal=USR1 qdagent
  wait_for_record "NFY Agent Update done"
  expect "started within the service" "$(grep -o "/qdagent.service\$" /qd/cgroup | sort -u)" /qdagent.service
  expect "first record" "$(log_records | head -n 1)" "NFY Check Update"
  expect "warnings" "$(log_records | grep "^WRN")" ""
  expect_updated
}

for version in 7.1.5.2 7.2.1.4 7.2.1.15; do make_agent $version "/qd/$version.$kind"; done
whole_update "agent.$kind"
whole_update "setup.$kind"
if [ "$kind" = deb ]; then
  furnish() { install -D <(say "of $2") "$1/etc/qdagent/qdagent.conf"; }
  make_agent 7.2.1.4 /qd/configured_4.deb
  make_agent 7.2.1.15 /qd/configured_15.deb
  changed_configuration_file
fi
x11_cases
# shellcheck disable=SC2016
install -D -m 755 <(printf '#!/bin/sh\ncat /proc/self/cgroup >/qd/cgroup\nexec /qd/update "$(cat /qd/address)" 7.2.1.4\n') \
  /etc/qdagent/update
update_itself "a bus"
quiet systemctl stop dbus.socket dbus.service
update_itself "no bus"
finish
