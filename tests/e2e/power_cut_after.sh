#!/usr/bin/env bash
# After the boot: within a minute an agent runs, whole, and nobody has done anything for it.

# shellcheck source=tests/e2e/recover.sh
. /qd/recover.sh || exit

settled() {
  [ ! -e "$state"/window.json ] && [ "$(agent_state) $(agent_running_version)" = "active $(agent_deb_version)" ]
}
# told FIELD: of the record.
told() { python3 -c 'import json, sys; print(json.load(open("/var/lib/qd/update/status.json"))[sys.argv[1]])' "$1"; }

for _ in {1..300}; do
  if settled; then break; fi
  sleep 0.2
done
version=$(agent_deb_version)
expect "window" "$(find "$state" -name 'window*')" ""
expect "package" "$(dpkg-query --show --showformat='${db:Status-Abbrev}' qdagent)" "ii "
expect "files" "$(dpkg --verify qdagent)$(cat /usr/share/qdagent/* | cut -d' ' -f1 | sort | uniq -c | tr -s ' ')" \
  " 900 $version"
expect_agent active "$version"
if [ "$(told outcome)" = running ]; then expect "outcome" running "any other"; fi
say "  $version, $(told status) $(told message)"
if [ "$failed" = 1 ]; then
  cat $log
  systemctl status --no-pager -l qd-update-recover qdagent || true
fi
finish
