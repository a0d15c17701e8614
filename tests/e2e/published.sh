# shellcheck shell=bash disable=SC2154
# An agent's release for those who publish and install it in a booted copy. Sourced, not run.

# installed_agent: the old version runs; the new one lies in the folder packages.
installed_agent() {
  make_agent_deb 7.2.1.4 /qd/old.deb
  make_agent_deb 7.2.1.15 /qd/new.deb
  dpkg-deb --raw-extract /qd/new.deb /qd/new
  sed -i "s/^Architecture:.*/Architecture: $(dpkg --print-architecture)/" /qd/new/DEBIAN/control
  quiet dpkg-deb --build /qd/new /qd/packages/qdagent_7.2.1.15.deb
  quiet dpkg -i /qd/old.deb
  systemctl start qdagent
}

# What is in /srv/agent is served, with a certificate that the machine's authorities vouch for.
serve_folder() {
  mkdir -p "$server/www"
  openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=updates.example.com \
    -addext subjectAltName=DNS:updates.example.com -keyout "$server/key.pem" -out "$server/cert.pem" 2>/dev/null
  cat "$server/cert.pem" >>/etc/ssl/certs/ca-certificates.crt
  echo 127.0.0.1 updates.example.com >>/etc/hosts
  server_start "$server" "server {
    listen 127.0.0.1:443 ssl;
    ssl_certificate $server/cert.pem;
    ssl_certificate_key $server/key.pem;
    location /agent/ { alias /srv/agent/; }
  }"
}
