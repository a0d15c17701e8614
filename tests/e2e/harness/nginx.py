"""A real server: nginx, as the scripts start it."""

import shutil
import socket
import subprocess
from pathlib import Path

from .run import Skip
from .suite import TOP
from .tls import certify

# Next to the plain server: the same files by HTTPS, under "/moved" through redirects, from HTTP to
# HTTPS and there to the root, and under "/chunked" in chunks, without a length.
MORE = """
ssl_certificate {folder}/cert.pem;
ssl_certificate_key {folder}/key.pem;
server {{
  listen 127.0.0.1:{port};
  listen 127.0.0.1:{tls} ssl;
  root {folder}/www;
  location /moved/ {{
    if ($scheme = http) {{ return 301 https://127.0.0.1:{tls}$request_uri; }}
    rewrite ^/moved(/.*)$ $1 redirect;
  }}
  location /chunked/ {{
    alias {folder}/www/;
    if ($request_method = GET) {{ ssi on; }}
    ssi_types *;
  }}
}}
"""


def free_port() -> int:
    """A port of the loopback address that was free a moment ago."""
    with socket.create_server(("127.0.0.1", 0)) as server:
        return server.getsockname()[1]


class Nginx:
    """Serves `www`. Its certificate is signed by itself and names another host."""

    def __init__(self, folder: str):
        if shutil.which("nginx") is None:
            raise Skip("needs nginx")
        self.folder, self.www = folder, Path(folder, "www")
        self.www.mkdir(parents=True)
        port, tls = free_port(), free_port()
        self.url, self.tls_url = f"http://127.0.0.1:{port}", f"https://127.0.0.1:{tls}"
        certify(folder, "elsewhere.example")
        self.script("server_start", folder, MORE.format(folder=folder, port=port, tls=tls))

    def script(self, function: str, *args: str) -> None:
        lib = f"{TOP}/scripts/lib"
        text = f'. {lib}/common.sh; . {lib}/server.sh; {function} "$@"'
        subprocess.run(["bash", "-c", text, "bash", *args], check=True)

    def __enter__(self) -> "Nginx":
        return self

    def __exit__(self, *_) -> None:
        self.script("server_stop", self.folder)

    def served(self) -> list[str]:
        """The requests so far: 'connection-number METHOD path status "user agent"'."""
        return Path(self.folder, "access.log").read_text().splitlines()
