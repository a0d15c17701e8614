#!/usr/bin/env bash
# A version that ails is rolled back, on a system without dpkg, with the real rpm and systemctl.

# shellcheck source=tests/e2e/rollback.sh
. /qd/rollback.sh || exit

old=7.2.1.4
new=7.2.1.15
script_failure="the installation failed: warning: %post(qdagent-7.2.1.15-1.noarch) scriptlet failed, exit status 1"
there() { rpm -q --queryformat '%{VERSION}' qdagent; }

# make_package VERSION FILE [CODE [UNIT-LINE [SCRIPT]]]: SCRIPT is what follows in the post-installation script.
make_package() {
  local top=/qd/top
  mkdir $top
  ailing_tree "$1" $top/tree "${@:3:2}"
  printf '%s\n' "Name: qdagent" "Version: $1" "Release: 1" "Summary: sample" "License: none" "BuildArch: noarch" \
    "AutoReqProv: no" "Provides: /bin/sh" "%description" "Sample." "%install" "cp -a $top/tree/. %{buildroot}" \
    "%files" "/usr" "%config /etc/qdagent/ours" "%config /etc/qdagent/theirs" \
    "%post" "systemctl daemon-reload" "${5:-}" >$top/qdagent.spec
  rpmbuild -bb --quiet --define "_topdir $top" --define "_rpmfilename package.rpm" $top/qdagent.spec >/dev/null
  mv $top/RPMS/package.rpm "$2"
  rm -r $top
}
make_ailing() {
  ailing=/qd/ailing.rpm
  make_package 7.2.1.15 $ailing "$@"
}

make_package 7.2.1.3 /qd/older.rpm
make_package 7.2.1.4 /qd/old.rpm
small_disk "$(rpm --eval '%{_dbpath}')"
rm /usr/bin/dpkg
quiet rpm -U /qd/older.rpm
first_update 7.2.1.3 /qd/old.rpm
rolled_back_all
mkdir -p /var/cache/dnf/qd/packages
cached /var/cache/dnf/qd/packages/qdagent-7.2.1.4 .rpm
not_rolled_back_all
finish
