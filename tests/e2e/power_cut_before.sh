#!/usr/bin/env bash
# An update with [health] on a Debian machine that starts its agent, and ends interrupted updates, at boot.

# shellcheck source=tests/e2e/recover.sh
. /qd/recover.sh || exit

# make_large_deb VERSION FILE: an agent with many files, so that installing it takes its time.
make_large_deb() {
  make_agent_deb "$1" "$2"
  dpkg-deb --raw-extract "$2" /qd/tree
  mkdir -p /qd/tree/usr/share/qdagent
  for number in {1..900}; do echo "$1 $number" >"/qd/tree/usr/share/qdagent/$number"; done
  dpkg-deb --build -Znone --root-owner-group /qd/tree "$2" >/dev/null
  rm -r /qd/tree
}

rm -f /etc/dpkg/dpkg.cfg.d/* # "unsafe" input and output, for one, which no machine has that may lose its power
install -m 755 /qd/qd-update /qd/update /usr/sbin
install -m 644 /qd/qd-update-recover.service /etc/systemd/system
systemctl daemon-reload
quiet systemctl enable qd-update-recover
make_large_deb 7.2.1.4 /qd/old.deb
make_large_deb 7.2.1.15 /qd/new.deb
quiet dpkg -i /qd/old.deb
quiet systemctl enable --now qdagent
kept /qd/old.deb 7.2.1.4.deb
offer 7.2.1.15 /qd/new.deb
mkdir -p /etc/qd
echo 'health.settle = "3s"' >/etc/qd/update.toml
sync
/usr/sbin/update "$(hex_address "$server_url")" 7.2.1.4 >/qd/run.out 2>&1 || die "$(cat /qd/run.out)"
sleep 1 # the last copy of the disk
finish
