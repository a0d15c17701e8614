#!/usr/bin/env bash
# Runs that die while they replace the agent, on a Debian system with its own dpkg and systemd.

# shellcheck source=tests/e2e/recover.sh
. /qd/recover.sh || exit

# slow_deb VERSION FILE: an agent whose scripts take their time: before it is unpacked, after it is configured, and
# after another version was unpacked over it.
slow_deb() {
  make_agent_deb "$1" "$2"
  dpkg-deb --raw-extract "$2" /qd/tree
  printf '#!/bin/sh\nsleep 1\n' >/qd/tree/DEBIAN/preinst
  printf '#!/bin/sh\nsystemctl daemon-reload\nsleep 2\n' >/qd/tree/DEBIAN/postinst
  # shellcheck disable=SC2016
  printf '#!/bin/sh\n[ "$1" != upgrade ] || sleep 2\n' >/qd/tree/DEBIAN/postrm
  chmod 755 /qd/tree/DEBIAN/p*
  dpkg-deb --build -Znone --root-owner-group /qd/tree "$2" >/dev/null
  rm -r /qd/tree
}

installed() {
  quiet dpkg -i --force-downgrade "$1"
  systemctl restart qdagent
  expect_agent active 7.2.1.4
  kept "$1" 7.2.1.4.deb
}
there() { dpkg-query --show --showformat='${db:Status-Abbrev}${Version}' qdagent; }
whole() { say "ii $1"; }

runs() { pgrep -f "qdagent.$1|tmp.ci/$1" >/dev/null; }
# shellcheck disable=SC2046
end() { kill -9 $(pgrep -x dpkg) $(pgrep -f "qdagent.$1|tmp.ci/$1"); }

dies() { killed "$1" /qd/old.deb /qd/new.deb "${@:2}"; }

slow_deb 7.2.1.4 /qd/old.deb
slow_deb 7.2.1.15 /qd/new.deb

dies "dpkg works on, and the timer comes" install
recovered 0 "ii 7.2.1.15" 7.2.1.15 wait_for_timer
dies "the agent is being stopped" stop
recovered 11 "ii 7.2.1.4" 7.2.1.4
dies "dpkg dies before it unpacks" install preinst
recovered 26 "ii 7.2.1.4" 7.2.1.4
dies "dpkg dies when it has unpacked" install postrm
recovered 26 "ii 7.2.1.4" 7.2.1.4
dies "dpkg dies when it configures" install postinst
recovered 0 "ii 7.2.1.15" 7.2.1.15

make_agent_deb 7.2.1.4 /qd/old.deb
make_agent_deb 7.2.1.15 /qd/new.deb
killed_at_calls "${QD_POINTS:-6}" /qd/old.deb /qd/new.deb
finish
