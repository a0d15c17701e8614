#!/usr/bin/env bash
# After the boot: within a minute an agent runs, whole, and nobody has done anything for it.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh || exit

for _ in {1..300}; do
  version=$(agent_running_version)
  if [ ! -e $state/window.json ] && [ "$(there) $(agent_state)" = "$(whole "$version") active" ]; then break; fi
  sleep 0.2
done
expect "window" "$(find $state -name 'window*')" ""
expect "package and agent" "$(there) $(agent_state)" "$(whole "$version") active"
expect "files" "$($verify qdagent)$(cat /usr/share/qdagent/{all,"$version"}-{1..450} | sort | uniq -c | tr -s ' ')" \
  " 900 $version"
if [ "$(told outcome)" = running ]; then expect "outcome" running "any other"; fi
say "  $version, $(told status) $(told message)"
if [ "$failed" = 1 ]; then
  cat $log
  systemctl status --no-pager -l qd-update-recover qdagent || true
fi
finish
