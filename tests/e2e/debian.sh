#!/usr/bin/env bash
# Updates on a Debian system, with its own dpkg and systemctl.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh || exit

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
  update 7.2.1.4
  expect "status" "$status" 0
  expect_commands_succeeded
  expect "installed version" "$(agent_deb_version)" 7.2.1.15
  expect_agent active 7.2.1.15
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

# x11_installed: a package that brings libX11, so that the query finds it on every machine.
x11_installed() {
  mkdir -p /qd/x11/DEBIAN /qd/x11/usr/share/qd-sample
  : >/qd/x11/usr/share/qd-sample/libX11.so.6
  printf '%s\n' "Package: qd-x11" "Version: 1" "Architecture: all" "Maintainer: nobody <nobody@localhost>" \
    "Description: sample" >/qd/x11/DEBIAN/control
  dpkg-deb --build /qd/x11 /qd/x11.deb >/dev/null
  quiet dpkg -i /qd/x11.deb
}

# x11_step RECORD CALLS: an agent from before 7.2.0.0 is updated.
x11_step() {
  installed 7.1.5.2
  offer 7.2.1.15 /qd/qdagent_7.2.1.15.deb
  rm -f /qd/installer.calls
  update 7.1.5.2
  expect "status" "$status" 0
  expect "record" "$(log_records | grep -i x11)" "$1"
  expect "installer's calls" "$(cut -d' ' -f-3 /qd/installer.calls 2>/dev/null)" "$2"
  expect_agent active 7.2.1.15
}

x11_cases() {
  x11_installed
  printf '#!/bin/sh\necho "$@" >>/qd/installer.calls\n' >/usr/bin/apt-get
  begin "libX11 is installed: the agent's X11 libraries are, too"
  x11_step "NFY Found x11" "install -y libxrender1"
  begin "without libX11 nothing is installed for it"
  grep -lZ libX11 /var/lib/dpkg/info/*.list | xargs -0 sed -i /libX11/d
  x11_step "NFY X11 not found" ""
}

make_packages
whole_update
refusing_package
changed_configuration_file
x11_cases
finish
