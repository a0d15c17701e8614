# shellcheck shell=bash
# An update server: its folder, and an nginx of its own on loopback. Sourced, not run.

# The processor architecture's number and server folder of this machine.
server_arch_number() { case $(uname -m) in aarch64 | arm64) say 2 ;; *) say 1 ;; esac; }
server_arch_folder() { case $(uname -m) in aarch64 | arm64) say /linux/aarch64 ;; *) say /linux/amd64 ;; esac; }

# server_offer FOLDER VERSION PACKAGE: lays out what an update server offers, below FOLDER/www: the definition
# file, and in the platform's folder the version file, the package and its digest.
server_offer() {
  local www=$1/www path name
  path=$(server_arch_folder)
  name=${3##*/}
  rm -rf "$www"
  mkdir -p "$www$path"
  cp "$3" "$www$path/$name"
  (cd "$www$path" && md5sum "$name" >"$name.md5")
  say "$2" >"$www$path/version_long.txt"
  cat >"$www/agent_setup_def.json" <<END
[
  {
    "name": "sample agent",
    "path": "$path",
    "setup": "$name",
    "version": "version_long.txt",
    "hash": "$name.md5",
    "os": 3,
    "arch": $(server_arch_number),
    "enable": true
  }
]
END
}

# server_start FOLDER [SETTING]: serves FOLDER/www on a loopback port; its address is in $server_url afterwards,
# the port in $server_port. The access log, FOLDER/access.log, begins each line with the connection's number.
# SETTING: what else the configuration's http block has.
server_start() {
  for _ in {1..8}; do
    server_port=$((20000 + RANDOM % 30000))
    server_url=http://127.0.0.1:$server_port
    server_configure "$1" "$server_port" "${2:-}"
    if nginx -p "$1" -c "$1/nginx.conf" -e "$1/error.log" 2>"$1/start.log"; then return; fi
  done
  cat "$1/start.log" >&2
  die "nginx did not start"
}

server_configure() {
  cat >"$1/nginx.conf" <<END
pid $1/nginx.pid;
error_log $1/error.log;
user nobody nogroup;
worker_processes 1;
events {}
http {
  log_format requests '\$connection \$request_method \$uri \$status "\$http_user_agent"';
  access_log $1/access.log requests;
  client_body_temp_path $1/body;
  proxy_temp_path $1/proxy;
  fastcgi_temp_path $1/fastcgi;
  uwsgi_temp_path $1/uwsgi;
  scgi_temp_path $1/scgi;
  $3
  server {
    listen 127.0.0.1:$2;
    root $1/www;
  }
}
END
}

# server_stop FOLDER: ends the server that was started for this folder, if there is one.
server_stop() {
  local pid
  pid=$(cat "$1/nginx.pid" 2>/dev/null) || return 0
  if process_runs "$pid"; then kill -QUIT "$pid"; fi
  wait_for_end "$pid"
}

# hex_address TEXT: the form in which the program takes the server's address.
hex_address() { printf %s "$1" | xxd -p | tr -d '\n'; }
