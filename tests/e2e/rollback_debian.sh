#!/usr/bin/env bash
# A version that ails is rolled back, on a Debian system, with its own dpkg, apt and systemctl.

# shellcheck source=tests/e2e/rollback.sh
. /qd/rollback.sh || exit

old="ii 7.2.1.4"
new="ii 7.2.1.15"
script_failure="the installation failed: installed qdagent package post-installation script subprocess returned \
error exit status 1"
there() { dpkg-query --show --showformat='${db:Status-Abbrev}${Version}' qdagent; }

# make_package VERSION FILE [CODE [UNIT-LINE [SCRIPT]]]: SCRIPT is what follows in the post-installation script.
make_package() {
  ailing_tree "$1" /qd/tree "${@:3:2}"
  mkdir /qd/tree/DEBIAN
  printf '%s\n' "Package: qdagent" "Version: $1" "Architecture: all" "Maintainer: nobody <nobody@localhost>" \
    "Description: sample" >/qd/tree/DEBIAN/control
  printf '/etc/qdagent/%s\n' ours theirs >/qd/tree/DEBIAN/conffiles
  printf '#!/bin/sh\nsystemctl daemon-reload\n%s\n' "${5:-}" >/qd/tree/DEBIAN/postinst
  chmod 755 /qd/tree/DEBIAN/postinst
  dpkg-deb --build -Znone --root-owner-group /qd/tree "$2" >/dev/null
  rm -r /qd/tree
}
make_ailing() {
  ailing=/qd/ailing.deb
  make_package 7.2.1.15 $ailing "$@"
}

# What apt has a list of it knows the digest of.
listed() {
  mkdir /qd/apt
  cp "$1" /qd/apt/qdagent.deb
  {
    dpkg-deb --field "$1"
    printf '%s: %s\n' Filename ./qdagent.deb Size "$(stat -c %s "$1")" SHA256 "$(sha256sum "$1" | cut -d' ' -f1)"
  } >/qd/apt/Packages
  say "deb [trusted=yes] file:/qd/apt ./" >/etc/apt/sources.list.d/qd.list
  quiet apt-get update -o Dir::Etc::SourceList=/etc/apt/sources.list.d/qd.list -o Dir::Etc::SourceParts=-
}

make_package 7.2.1.3 /qd/older.deb
make_package 7.2.1.4 /qd/old.deb
small_disk /var/lib/dpkg
quiet dpkg -i /qd/older.deb
first_update 7.2.1.3 /qd/old.deb
rolled_back_all
listed /qd/old.deb
cached /var/cache/apt/archives/qdagent_7.2.1.4 .deb
not_rolled_back_all
finish
