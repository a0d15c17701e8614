#!/usr/bin/env bash
# An update with [health] on a machine that starts its agent, and ends interrupted updates, at boot.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh || exit

# Many files, so that installing them takes its time; half of them no other version has.
furnish() {
  mkdir -p "$1/usr/share/qdagent"
  for name in {all,"$2"}-{1..450}; do echo "$2" >"$1/usr/share/qdagent/$name"; done
}

rm -f /etc/dpkg/dpkg.cfg.d/* # "unsafe" input and output, for one, which no machine has that may lose its power
install -m 755 /qd/qd-update /qd/update /usr/sbin
install -m 644 /qd/qd-update-recover.service /etc/systemd/system
systemctl daemon-reload
quiet systemctl enable qd-update-recover
make_agent 7.2.1.4 "/qd/old.$kind"
make_agent 7.2.1.15 "/qd/new.$kind"
installed "/qd/old.$kind"
quiet systemctl enable qdagent
keep_package "/qd/old.$kind"
offer 7.2.1.15 "/qd/new.$kind"
mkdir -p /etc/qd
echo 'health.settle = "3s"' >/etc/qd/update.toml
sync
/usr/sbin/update "$(hex_address "$server_url")" 7.2.1.4 >/qd/run.out 2>&1 || die "$(cat /qd/run.out)"
sleep 1 # the last copy of the disk
finish
