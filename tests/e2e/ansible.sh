#!/usr/bin/env bash
# The example for Ansible, on this machine: it installs what keeps an agent up to date, and changes nothing the next time.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh || exit
# shellcheck source=tests/e2e/published.sh
. /qd/published.sh || exit

if ! command -v ansible-playbook >/dev/null; then
  say "It needs ansible-playbook."
  exit 77
fi

playbook() {
  HOME=/root ANSIBLE_PIPELINING=1 ansible-playbook --connection local --inventory localhost, /qd/ansible/update.yml \
    "$@" >/qd/play.out 2>&1 || expect "the playbook" "$(cat /qd/play.out)" success
}

begin "a playbook sets up a machine"
installed_agent
serve_folder
quiet dpkg -i /qd/packages/qd-repo_*.deb
quiet qd-repo init /srv/agent --keys /root/keys
quiet qd-repo publish /srv/agent /qd/packages/qdagent_7.2.1.15.deb --keys /root/keys --channel stable
mkdir -p /qd/ansible/files/health
cp /qd/packages/qd-update_*.deb /srv/agent/metadata/1.root.json /qd/ansible/files
printf '#!/bin/sh\n' >/qd/ansible/files/health/answers
playbook
expect "timer" "$(systemctl is-enabled qd-update.timer) $(systemctl is-active qd-update.timer)" "enabled active"
expect "check" "$(grep -o "An update is available" /qd/play.out)" "An update is available"
systemctl start qd-update.service
expect_agent active 7.2.1.15

say "- and changes nothing the next time but what was changed in it"
playbook --extra-vars '{"qd_windows": ["Mon-Fri 01:00-04:00"]}'
expect "changes" "$(grep -o "changed=[0-9]*" /qd/play.out)" changed=1
quiet qd-update check
finish
