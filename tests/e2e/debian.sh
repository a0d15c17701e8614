#!/usr/bin/env bash
# Updates on a Debian system, with its own dpkg and systemctl.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh

make_packages() {
  local version
  for version in 7.1.5.2 7.2.1.4 7.2.1.15; do make_agent_deb $version /qd/qdagent_$version.deb; done
  make_agent_deb 7.2.1.15 /qd/broken.deb broken
  make_agent_deb 7.2.1.4 /qd/configured_4.deb configured
  make_agent_deb 7.2.1.15 /qd/configured_15.deb configured
}

# installed VERSION [PACKAGE]: the agent runs in this version.
installed() {
  quiet dpkg -i "${2:-/qd/qdagent_$1.deb}"
  systemctl restart qdagent
  expect_agent active "$1"
}

whole_update() {
  begin "a whole update"
  installed 7.2.1.4
  offer 7.2.1.15 /qd/qdagent_7.2.1.15.deb
  local started
  started=$(date +%s%3N)
  update 7.2.1.4
  expect "status" "$status" 0
  expect_commands_succeeded
  expect "installed version" "$(agent_deb_version)" 7.2.1.15
  expect_agent active 7.2.1.15
  expect_lock_of_run_since "$started"
  expect_requests
}

# The lock that a finished run leaves holds the time of its start in milliseconds.
expect_lock_of_run_since() {
  local lock
  lock=$(cat /tmp/upgrade_ovt.lock)
  if ! [[ $lock =~ ^[0-9]{13}$ ]] || [ "$lock" -lt "$1" ] || [ "$lock" -gt "$(date +%s%3N)" ]; then
    expect "lock file" "$lock" "a time from $1 on"
  fi
}

expect_requests() {
  local path
  path=$(server_arch_folder)
  expect "requests" "$(cut -d' ' -f2- $server/access.log)" "GET /agent_setup_def.json 200 \"Updater/1.0.0\"
GET $path/version_long.txt 200 \"Updater/1.0.0\"
GET $path/qdagent_7.2.1.15.deb.md5 200 \"Updater/1.0.0\"
HEAD $path/qdagent_7.2.1.15.deb 200 \"Updater/1.0.0\"
GET $path/qdagent_7.2.1.15.deb 200 \"Updater/1.0.0\""
  expect "connections" "$(cut -d' ' -f1 $server/access.log | sort -u | wc -l)" 1
}

second_run_within_the_hour() {
  say "- a second run within the hour"
  rm $log
  update 7.2.1.4
  expect "status" "$status" 0
  expect "last record" "$(log_records | tail -n 1 | sed -E 's/ago .* :/ago TIME :/')" \
    "NFY Another instance of has been launched less than one hour ago TIME : lock file location is /tmp/upgrade_ovt.lock"
}

refusing_package() {
  begin "a package that refuses to be installed"
  installed 7.2.1.4
  offer 7.2.1.15 /qd/broken.deb
  update 7.2.1.4
  expect "status" "$status" 0
  expect "records" "$(log_records | sed -n '/Upgrading/,$p')" "NFY Upgrading agent ...'
ERR Fail to install agent : [256]
NFY Agent Started
NFY Agent Update done"
  expect "installed version" "$(agent_deb_version)" 7.2.1.4
  expect_agent active 7.2.1.4
}

changed_configuration_file() {
  begin "a configuration file that the administrator and the package have changed, and nobody who answers"
  installed 7.2.1.4 /qd/configured_4.deb
  say "the administrator's" >/etc/qdagent/qdagent.conf
  offer 7.2.1.15 /qd/configured_15.deb
  mkfifo /qd/silent
  exec 3<>/qd/silent
  update 7.2.1.4 <&3
  exec 3>&-
  expect "status" "$status" 0
  expect_commands_succeeded
  # shellcheck disable=SC2016
  expect "package" "$(dpkg-query --show --showformat='${db:Status-Status} ${Version}' qdagent)" "installed 7.2.1.15"
  expect "configuration" "$(cat /etc/qdagent/qdagent.conf)" "the administrator's"
  expect_agent active 7.2.1.15
}

# log_folder INSTANCE CONFIGURATION: where the log is kept is the agent's own setting.
log_folder() {
  begin "the log of instance '$1' in the data folder that $2 names"
  offer 7.2.1.4 /qd/qdagent_7.2.1.4.deb
  mkdir -p "$2" "/var/qd-data$1"
  printf '/var/qd-data%s\n' "$1" >"$2/dbdir.cfg"
  if [ -n "$1" ]; then export QD_AGENT_INSTANCE=$1; fi
  update 7.2.1.4
  unset QD_AGENT_INSTANCE
  expect "status" "$status" 0
  expect "last record" "$(log=/var/qd-data$1/UpdLogs/agent_upd.log log_records | tail -n 1)" \
    "NFY Current version is up to date. Nothing to do"
  expect "log in the temporary folder" "$(ls /tmp/agent_upd.log 2>/dev/null)" ""
  rm -r "$2"
}

x11_packages="libxrender1 libxcb1 libxcb-render0 libxcb-render-util0 libxcb-shape0 libxcb-randr0
libxcb-xfixes0 libxcb-xkb1 libxcb-sync1 libxcb-shm0 libxcb-icccm4 libxcb-keysyms1 libxcb-image0 libxcb-util1
libxcb-cursor0 libxkbcommon0 libxkbcommon-x11-0 libfontconfig1 libfreetype6 libxext6 libx11-xcb1 libsm6 libice6"

# x11_installed: a package that brings libX11, so that the query finds it on every machine.
x11_installed() {
  mkdir -p /qd/x11/DEBIAN /qd/x11/usr/share/qd-sample
  : >/qd/x11/usr/share/qd-sample/libX11.so.6
  printf '%s\n' "Package: qd-x11" "Version: 1" "Architecture: all" "Maintainer: nobody <nobody@localhost>" \
    "Description: sample" >/qd/x11/DEBIAN/control
  dpkg-deb --build /qd/x11 /qd/x11.deb >/dev/null
  quiet dpkg -i /qd/x11.deb
}

# x11_step STATUS RECORD...: an agent from before 7.2.0.0 is updated; the package installer ends with STATUS.
x11_step() {
  installed 7.1.5.2
  offer 7.2.1.15 /qd/qdagent_7.2.1.15.deb
  printf '#!/bin/sh\necho "$@" >>/qd/installer.calls\nexit %s\n' "$1" >/usr/bin/apt-get
  rm -f /qd/installer.calls
  update 7.1.5.2
  expect "status" "$status" 0
  expect "records" "$(log_records | sed -n "/Upgrading/,\$p")" "$(
    printf '%s\n' "NFY Upgrading agent ...'" "NFY installXCBDeps ..." "${@:2}"
    printf '%s\n' "NFY Agent Installed" "NFY Agent Started" "NFY Agent Update done"
  )"
  expect_agent active 7.2.1.15
}

x11_cases() {
  x11_installed
  begin "libX11 is installed: the agent's X11 libraries are, too"
  x11_step 0 "NFY Found x11" "NFY Install xcb dependencies0"
  # shellcheck disable=SC2086
  expect "installer's arguments" "$(cat /qd/installer.calls)" "install -y $(say $x11_packages)"
  begin "an installer that fails does not stop the update"
  x11_step 100 "NFY Found x11" "NFY Install xcb dependencies25600"
  begin "without libX11 nothing is installed for it"
  grep -lZ libX11 /var/lib/dpkg/info/*.list | xargs -0 sed -i /libX11/d
  x11_step 0 "NFY X11 not found"
  expect "installer's calls" "$(cat /qd/installer.calls 2>/dev/null)" ""
}

make_packages
whole_update
second_run_within_the_hour
refusing_package
changed_configuration_file
log_folder "" /etc/qd/conf
log_folder a2 /etc/qd/conf.a2
x11_cases
finish
