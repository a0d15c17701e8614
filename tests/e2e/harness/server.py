"""An HTTP server on a loopback port that follows a script and keeps what it was asked."""

import http.server
import socket
import ssl
import threading
from collections.abc import Callable
from dataclasses import dataclass, field
from typing import Any

from .texts import fill

PIECES = 10


@dataclass(frozen=True)
class Answer:
    """What is sent for one request. Texts in it may have {names}; bytes are sent as they are."""

    body: str | bytes = b""
    status: int = 200
    headers: dict[str, str] = field(default_factory=dict)
    # Content-Length: "*" is the body's; None leaves it out (the end of the connection then ends the
    # body); anything else is sent as it is.
    length: str | None = "*"
    chunked: bool = False
    # The body is repeated until the client goes away.
    endless: bool = False
    # Sent in place of everything above but for an endless body; then the connection is cut.
    raw: bytes | None = None
    # The body goes out in ten pieces; after each it is called with the run and the piece's number.
    paced: Callable[[Any, int], None] | None = None


@dataclass(frozen=True)
class Request:
    line: str  # "GET /path"
    headers: dict[str, str]  # names in lower case


def free_port() -> int:
    """A port of the loopback address that was free a moment ago."""
    with socket.create_server(("127.0.0.1", 0)) as server:
        return server.getsockname()[1]


def redirect(to: str) -> Answer:
    return Answer(status=302, headers={"Location": to})


class Server(http.server.ThreadingHTTPServer):
    """Answers by "METHOD /path" or, for every method, "/path".

    A script's value is an Answer; a body; a status to refuse with; a function of the Request and
    the run that returns one of these; or a list of them, given in turn, the last one for ever. What
    is not in the script is 404. Each connection has a thread of its own.
    """

    daemon_threads = True
    request_queue_size = 128

    def __init__(self, script: dict[str, Any], texts: dict[str, str] | None = None, run: Any = None,
                 tls: ssl.SSLContext | None = None):
        super().__init__(("127.0.0.1", 0), Handler)
        self.url = f"{'https' if tls else 'http'}://127.0.0.1:{self.server_address[1]}"
        self.texts = {**(texts or {}), "S": self.url}
        self.script = {fill(key, self.texts): [*value] if isinstance(value, list) else [value]
                       for key, value in script.items()}
        self.run, self.tls = run, tls
        self.requests: list[Request] = []
        self.connections = 0
        self.lock = threading.Lock()
        threading.Thread(target=self.accept_all, daemon=True).start()

    def accept_all(self) -> None:
        while True:
            try:
                connection, address = self.socket.accept()
            except OSError:
                return
            connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            self.connections += 1
            self.process_request(connection, address)

    def finish_request(self, connection, address) -> None:
        if self.tls is None:
            super().finish_request(connection, address)
            return
        with self.tls.wrap_socket(connection, server_side=True) as secured:
            super().finish_request(secured, address)

    def handle_error(self, request, client_address) -> None:
        pass  # a client that has gone away

    def __exit__(self, *_) -> None:
        self.socket.shutdown(socket.SHUT_RDWR)
        self.socket.close()

    def answer_for(self, request: Request) -> Answer:
        with self.lock:
            self.requests.append(request)
            line = request.line
            left = self.script.get(line, self.script.get(line.partition(" ")[2], [404]))
            answer = left.pop(0) if len(left) > 1 else left[0]
        if callable(answer):
            answer = answer(request, self.run)
        if isinstance(answer, int):
            answer = Answer("<h1>no</h1>", status=answer)
        return answer if isinstance(answer, Answer) else Answer(answer)


class Handler(http.server.BaseHTTPRequestHandler):
    """One connection."""

    protocol_version = "HTTP/1.1"
    server: Server

    def do_GET(self) -> None:
        headers = {name.lower(): value for name, value in self.headers.items()}
        line = " ".join(self.requestline.split()[:2])  # self.path has lost a slash of two
        answer = self.server.answer_for(Request(line, headers))
        try:
            self.send(answer)
        except OSError:
            self.close_connection = True

    do_HEAD = do_POST = do_PUT = do_GET

    def send(self, answer: Answer) -> None:
        body = answer.body
        if isinstance(body, str):
            body = fill(body, self.server.texts).encode(errors="surrogateescape")
        if answer.raw is not None:
            self.close_connection = True
            self.wfile.write(answer.raw)
        else:
            head = self.head(answer, len(body))
            if self.command == "HEAD":
                self.wfile.write(head)
                return
            self.wfile.write(head + self.whole(answer, body))
            if answer.paced:
                self.send_paced(body, answer.paced)
            self.close_connection |= answer.length is None and not answer.chunked
        while answer.endless:
            self.wfile.write(body)

    def head(self, answer: Answer, size: int) -> bytes:
        lines = [f"HTTP/1.1 {answer.status} {self.responses.get(answer.status, ('',))[0]}"]
        lines += [f"{name}: {fill(value, self.server.texts)}" for name, value in answer.headers.items()]
        if answer.chunked:
            lines.append("Transfer-Encoding: chunked")
        elif answer.length is not None:
            lines.append(f"Content-Length: {size if answer.length == '*' else answer.length}")
        return "\r\n".join([*lines, "", ""]).encode()

    @staticmethod
    def whole(answer: Answer, body: bytes) -> bytes:
        if answer.paced or answer.endless:
            return b""
        if not answer.chunked:
            return body
        return (b"%x\r\n%s\r\n" % (len(body), body) if body else b"") + b"0\r\n\r\n"

    def send_paced(self, body: bytes, after: Callable[[Any, int], None]) -> None:
        size = -(-len(body) // PIECES)
        for piece in range(PIECES):
            self.wfile.write(body[piece * size:(piece + 1) * size])
            after(self.server.run, piece + 1)

    def log_message(self, *_) -> None:
        pass
