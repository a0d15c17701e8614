# shellcheck shell=bash disable=SC2034
# What the scenarios say of a kind of package, deb or rpm, in the same words for both. Sourced by expect.sh with $kind,
# not run.
#
# pack NAME VERSION TREE FILE [LINE...] makes a package, with these lines in its control or spec file. These variables
# are the scripts in it: `pre` before the installation, `post` after it, `gone` when an upgrade has replaced it.
# `there` is what the package database has of the agent, and `whole VERSION` what it says of one that is whole.

case $kind in
  deb)
    manager=dpkg
    install="dpkg -i"
    installer=apt-get # of the X11 libraries
    force="dpkg -i --force-downgrade --force-confnew"
    remove="dpkg -r"
    verify="dpkg --verify"
    database=/var/lib/dpkg
    lock_file=/var/lib/dpkg/lock-frontend
    script() { install -m 755 <(printf '#!/bin/sh\n%s\n' "${@:2}") "$1"; }
    pack() {
      mkdir "$3/DEBIAN"
      script "$3/DEBIAN/preinst" "${pre:-}"
      script "$3/DEBIAN/postinst" "systemctl daemon-reload" "${post:-}"
      script "$3/DEBIAN/postrm" "[ \$1 != upgrade ] || { ${gone:-true}; }"
      make_deb "$@"
    }
    # shellcheck disable=SC2016
    there() { dpkg-query --show --showformat='${db:Status-Abbrev}${Version}' qdagent; }
    whole() { say "ii $1"; }
    ;;
  rpm)
    manager=rpm
    install="rpm -U"
    installer=dnf
    force="rpm -U --force --oldpackage"
    remove="rpm -e"
    verify="rpm --verify"
    database=$(rpm --eval '%{_dbpath}')
    lock_file=$(rpm --eval '%{_rpmlock_path}')
    pack() {
      make_rpm "${@:1:4}" "Provides: /bin/sh" "${@:5}" %pre "${pre:-}" "%post ${lua:+-p <lua>}" \
        "${lua:-systemctl daemon-reload}" "${post:-}" %postun "[ \$1 != 1 ] || { ${gone:-true}; }"
    }
    there() { rpm -q --queryformat '%{VERSION} ' qdagent; }
    whole() { say "$1 "; }
    rm -f /usr/bin/dpkg # by which the machine would be one with dpkg
    ;;
esac

# furnish TREE VERSION: what a scenario has in its agents besides.
furnish() { :; }

# make_agent VERSION FILE [LINE...]: a package of the agent.
make_agent() {
  agent_tree "$1" /qd/tree
  furnish /qd/tree "$1"
  pack qdagent "$1" /qd/tree "$2" "${@:3}"
  rm -r /qd/tree
}
