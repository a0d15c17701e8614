"""Certificates of servers, signed by themselves."""

import ssl
import subprocess


def context(folder: str, host: str) -> ssl.SSLContext:
    """Of a server for a host, named or by its address, with cert.pem and key.pem in the folder. Behind the host may
    stand " expired", or " client" for a server that asks for the certificate itself as that of a client."""
    host, _, special = host.partition(" ")
    kind = "IP" if host[0].isdigit() else "DNS"

    def openssl(words: str) -> None:
        subprocess.run(["openssl", *words.split()], cwd=folder, check=True, capture_output=True)

    openssl(f"req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj /CN={host} "
            f"-addext subjectAltName={kind}:{host} -keyout key.pem -out cert.pem")
    if special == "expired":
        openssl("x509 -in cert.pem -signkey key.pem -days -1 -out cert.pem")
    made = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    made.load_cert_chain(f"{folder}/cert.pem", f"{folder}/key.pem")
    if special == "client":
        made.verify_mode = ssl.CERT_REQUIRED
        made.load_verify_locations(f"{folder}/cert.pem")
    return made
