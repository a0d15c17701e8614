#!/usr/bin/env bash
# The commands of docs/administrator.md as they stand there, from the packages to a staged roll-out.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh

# What is in /srv/agent is served, with a certificate that the machine's authorities vouch for.
serve_folder() {
  mkdir -p $server/www
  openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=updates.example.com \
    -addext subjectAltName=DNS:updates.example.com -keyout $server/key.pem -out $server/cert.pem 2>/dev/null
  cat $server/cert.pem >>/etc/ssl/certs/ca-certificates.crt
  echo 127.0.0.1 updates.example.com >>/etc/hosts
  server_start $server "server {
    listen 127.0.0.1:443 ssl;
    ssl_certificate $server/cert.pem;
    ssl_certificate_key $server/key.pem;
    location /agent/ { alias /srv/agent/; }
  }"
}

make_packages() {
  make_agent_deb 7.2.1.4 /qd/old.deb
  make_agent_deb 7.2.1.15 /qd/new.deb
  dpkg-deb --raw-extract /qd/new.deb /qd/new
  sed -i "s/^Architecture:.*/Architecture: $(dpkg --print-architecture)/" /qd/new/DEBIAN/control
  quiet dpkg-deb --build /qd/new /qd/packages/qdagent_7.2.1.15.deb
}

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
make_packages
quiet dpkg -i /qd/old.deb
systemctl start qdagent
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
