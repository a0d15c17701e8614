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


LONG_AGO = """
[ca]
default_ca = one
[one]
database = index
serial = serial
new_certs_dir = .
default_md = sha256
policy = any
copy_extensions = copy
[any]
commonName = supplied
"""


def expire(folder: str) -> None:
    """Puts in place of cert.pem one that expired long ago."""
    for name, text in (("ca.cnf", LONG_AGO), ("index", ""), ("serial", "01\n")):
        with open(f"{folder}/{name}", "w") as file:
            file.write(text)
    for words in (["x509", "-x509toreq", "-in", "cert.pem", "-signkey", "key.pem", "-copy_extensions",
                   "copy", "-out", "request.pem"],
                  ["ca", "-config", "ca.cnf", "-batch", "-selfsign", "-keyfile", "key.pem", "-notext", "-in",
                   "request.pem", "-startdate", "20200101000000Z", "-enddate", "20200102000000Z",
                   "-out", "cert.pem"]):
        subprocess.run(["openssl", *words], cwd=folder, check=True, capture_output=True)


def context(folder: str, host: str) -> ssl.SSLContext:
    """Of a server for a host. Behind it may stand " expired", or " client" for a server that asks for the
    certificate itself as that of a client."""
    host, _, special = host.partition(" ")
    certify(folder, host)
    if special == "expired":
        expire(folder)
    made = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    made.load_cert_chain(f"{folder}/cert.pem", f"{folder}/key.pem")
    if special == "client":
        made.verify_mode = ssl.CERT_REQUIRED
        made.load_verify_locations(f"{folder}/cert.pem")
    return made
