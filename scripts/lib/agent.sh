# shellcheck shell=bash
# The sample agent `qdagent`: its packages, and what is known of it at run time. Sourced, not run.

agent_run_folder=${QD_AGENT_RUN:-/run/qdagent}

# agent_tree VERSION FOLDER: the files of the agent, as they lie below "/".
agent_tree() {
  mkdir -p "$2/usr/sbin" "$2/usr/lib/systemd/system"
  {
    printf '#!/usr/bin/python3 -IS\nVERSION = "%s"\n' "$1"
    cat <<'END'
# Sample agent: says which version of it runs, and waits. On USR1 it starts its own update. Its signals are blocked
# but for the wait, and it has no child otherwise: none is lost in a child that is just being made, which
# would then outlive the stop of the service.
import os
import signal
import socket

SIGNALS = {signal.SIGTERM, signal.SIGUSR1}
signal.pthread_sigmask(signal.SIG_BLOCK, SIGNALS)
with open(os.environ["RUNTIME_DIRECTORY"] + "/version", "w") as file:
    print(VERSION, file=file)
if "NOTIFY_SOCKET" in os.environ:
    socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM).sendto(b"READY=1", os.environ["NOTIFY_SOCKET"])
while signal.sigwait(SIGNALS) == signal.SIGUSR1:
    os.posix_spawn("/etc/qdagent/update", ["update"], os.environ, setsigmask=[])
END
  } >"$2/usr/sbin/qdagent"
  chmod 755 "$2/usr/sbin/qdagent"
  cat >"$2/usr/lib/systemd/system/qdagent.service" <<'END'
[Unit]
Description=Sample agent
StartLimitIntervalSec=0

[Service]
Type=notify
ExecStart=/usr/sbin/qdagent
RuntimeDirectory=qdagent

[Install]
WantedBy=multi-user.target
END
}

# make_deb NAME VERSION TREE FILE [FIELD...]: a Debian package of the files below TREE, with these fields besides. The
# files below etc are its configuration; what TREE has in DEBIAN is the package's own.
make_deb() {
  mkdir -p "$3/DEBIAN"
  printf '%s\n' "Package: $1" "Version: $2" "Architecture: ${architecture:-all}" \
    "Maintainer: nobody <nobody@localhost>" "Description: sample" "${@:5}" >"$3/DEBIAN/control"
  (cd "$3" && find . -path './etc/*' -type f -printf '/%P\n') >"$3/DEBIAN/conffiles"
  dpkg-deb --build -Znone --root-owner-group "$3" "$4" >/dev/null
}

# make_agent_deb VERSION FILE: a Debian package of the agent.
make_agent_deb() {
  agent_tree "$1" "$2.tree"
  mkdir "$2.tree/DEBIAN"
  cat >"$2.tree/DEBIAN/postinst" <<'END'
#!/bin/sh
[ -n "${DPKG_ROOT:-}" ] || systemctl daemon-reload
END
  chmod 755 "$2.tree/DEBIAN/postinst"
  make_deb qdagent "$1" "$2.tree" "$2"
  rm -rf "$2.tree"
}

# make_rpm NAME VERSION TREE FILE [LINE...]: an RPM package of the files below TREE, with these lines in its spec file
# besides. The files below etc are its configuration. They are packed as they lie there, without the scripts that
# rpmbuild runs over what it has built.
make_rpm() {
  local top=$4.top
  mkdir -p "$top"
  {
    printf '%s\n' "Name: $1" "Version: $2" "Release: 1" "Summary: sample" "License: none" "AutoReqProv: no" "${@:5}" \
      %description Sample. %files
    (cd "$3" && find . -type f -printf '/%P\n') | sed 's,^/etc/,%config &,'
  } >"$top/$1.spec"
  rpmbuild -bb --quiet --noprep --noclean --target "${architecture:-noarch}" --buildroot "$3" \
    --define "_topdir $top" --define "_rpmfilename package.rpm" --define "__spec_install_pre %{nil}" \
    --define "__os_install_post %{nil}" "$top/$1.spec" >/dev/null
  mv "$top/RPMS/package.rpm" "$4"
  rm -rf "$top"
}

# The version that the running agent states, or nothing.
agent_running_version() { cat "$agent_run_folder/version" 2>/dev/null || true; }

# The state of the agent's service: active, inactive, ...
agent_state() { systemctl is-active qdagent || true; }

# The version that the Debian package database has.
agent_deb_version() { dpkg -s qdagent 2>/dev/null | sed -n 's/^Version: //p'; }
