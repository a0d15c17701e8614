#!/usr/bin/env bash
# The commands of docs/administrator.md as they stand there, from the packages to a staged roll-out.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh || exit
# shellcheck source=tests/e2e/published.sh
. /qd/published.sh || exit

# is_as_told NUMBER: what the text says of the command that was run.
is_as_told() {
  local said=0
  case $1 in
    4) expect "timer" "$(systemctl is-enabled qd-update.timer)" disabled ;;
    7) expect "timer" "$(systemctl is-active qd-update.timer)" active ;;
    8)
      said=21
      grep -q "share of the roll-out" /qd/command.out || expect "check" "$(cat /qd/command.out)" "not its turn"
      expect_agent active 7.2.1.4
      ;;
    10) expect_agent active 7.2.1.15 ;;
  esac
  expect "status of command $1" "$status $([ $status = $said ] || cat /qd/command.out)" "$said "
}

begin "the administrator's ten commands"
installed_agent
serve_folder
cd /qd/packages
export HOME=/root
number=0
while read -r -d "" command; do
  number=$((number + 1))
  status=0
  sh -c "$command" >/qd/command.out 2>&1 || status=$?
  is_as_told $number
done < <(/qd/lib/document-commands /qd/administrator.md)
expect "commands" $number 10
qd-update status
finish
