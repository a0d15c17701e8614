"""Certificates of servers, signed by themselves."""

import ipaddress
import ssl
import subprocess


def certify(folder: str, host: str) -> None:
    """Makes cert.pem and key.pem for a host, named or by its address, in the folder."""
    try:
        kind = f"IP:{ipaddress.ip_address(host)}"
    except ValueError:
        kind = f"DNS:{host}"
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
         "-nodes", "-days", "2", "-subj", f"/CN={host}", "-addext", f"subjectAltName={kind}",
         "-keyout", "key.pem", "-out", "cert.pem"], cwd=folder, check=True, capture_output=True)


def context(folder: str, host: str) -> ssl.SSLContext:
    certify(folder, host)
    made = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    made.load_cert_chain(f"{folder}/cert.pem", f"{folder}/key.pem")
    return made
