"""An HTTP server on a free loopback port whose every answer the test writes itself.

It speaks to sockets directly, because most of what is tested are answers that no decent server
gives: missing, wrong or oversized lengths, bodies that break off, connections that are reset.
"""

import dataclasses
import socket
import struct
import threading

from harness.constants import TIMEOUT


class Gate:
    """Holds an answer back until the test has seen what it wants to see meanwhile."""

    def __init__(self) -> None:
        self._opened = threading.Event()
        self._reached = threading.Event()

    def open(self) -> None:
        self._opened.set()

    @property
    def reached(self) -> bool:
        """Whether the request came that is to be held back."""
        return self._reached.is_set()

    def hold(self) -> None:
        self._reached.set()
        self._opened.wait(TIMEOUT)


@dataclasses.dataclass
class Answer:
    """One answer, as it goes over the wire."""

    body: bytes = b""
    status: int = 200
    reason: str = "Reason"
    # The Content-Length header: "exact", None for no such header, or the text to send.
    length: str | None = "exact"
    headers: tuple[str, ...] = ()
    chunked: bool = False
    # How many bytes of the body are sent before the connection is closed (or reset).
    cut_after: int | None = None
    reset: bool = False
    # Close (or reset) without a single byte of an answer.
    silent: bool = False
    # Pause after each byte of the body.
    pause: float = 0
    gate: Gate | None = None
    # Where the connection stops sending before the gate opens, in bytes of the body.
    gate_after: int | None = None
    # The last answer: later connections are refused.
    last: bool = False

    def head(self) -> bytes:
        lines = [f"HTTP/1.1 {self.status} {self.reason}", "Connection: close", *self.headers]
        if self.chunked:
            lines.append("Transfer-Encoding: chunked")
        elif self.length == "exact":
            lines.append(f"Content-Length: {len(self.body)}")
        elif self.length is not None:
            lines.append(f"Content-Length: {self.length}")
        return "\r\n".join([*lines, "", ""]).encode("latin-1")


NOT_FOUND = Answer(b"nothing here", status=404)


def redirect(location: str, status: int = 301) -> Answer:
    return Answer(b"moved", status=status, headers=(f"Location: {location}",))


class ScriptedServer:
    def __init__(self) -> None:
        self.answers: dict[str, Answer] = {}
        self.requests: list[str] = []
        self.heads: list[str] = []
        self._gates: list[Gate] = []
        self._failures: list[BaseException] = []
        self._lock = threading.Lock()
        self._socket = socket.create_server(("127.0.0.1", 0), backlog=64)
        self.port = self._socket.getsockname()[1]
        self.url = f"http://127.0.0.1:{self.port}/"
        self._accepting = True
        self._port_keeper: socket.socket | None = None
        self._connections: list[threading.Thread] = []
        self._thread = threading.Thread(target=self._accept, daemon=True)
        self._thread.start()

    def serve(self, path: str, answer: Answer | bytes) -> None:
        """Sets the answer to a path, which has no leading slash."""
        self.answers["/" + path] = answer if isinstance(answer, Answer) else Answer(answer)

    def hold(self, path: str, after: int | None = None) -> Gate:
        """Holds back the present answer to a path, or what follows its first bytes."""
        gate = Gate()
        self._gates.append(gate)
        self.answers["/" + path] = dataclasses.replace(
            self.answers["/" + path], gate=gate, gate_after=after
        )
        return gate

    def close(self) -> None:
        """Ends the server; fails if one of its threads did, for then it was not as scripted."""
        for gate in self._gates:
            gate.open()
        self._stop_accepting()
        if self._port_keeper:
            self._port_keeper.close()
        for thread in self._connections:
            thread.join(TIMEOUT)
        assert not self._failures, f"the server failed: {self._failures!r}"

    def _accept(self) -> None:
        while True:
            try:
                connection, _ = self._socket.accept()
            except OSError:
                if self._accepting:
                    raise
                return
            thread = threading.Thread(target=self._serve_one, args=(connection,), daemon=True)
            self._connections.append(thread)
            thread.start()

    def _stop_accepting(self) -> None:
        if self._accepting:
            self._accepting = False
            # The accepting thread does not notice that its socket is closed: this wakes it.
            self._socket.shutdown(socket.SHUT_RDWR)
            self._thread.join(TIMEOUT)
            self._socket.close()

    def refuse(self) -> None:
        """Refuses connections from now on, and keeps the port."""
        self._stop_accepting()
        self._port_keeper = socket.socket()
        self._port_keeper.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self._port_keeper.bind(("127.0.0.1", self.port))

    def _serve_one(self, connection: socket.socket) -> None:
        connection.settimeout(TIMEOUT)
        try:
            with connection:
                self._answer(connection)
        except OSError:
            # The Launcher was ended or closed the connection: it is its requests that count.
            pass
        except Exception as error:
            self._failures.append(error)

    def _answer(self, connection: socket.socket) -> None:
        head = b""
        while b"\r\n\r\n" not in head:
            received = connection.recv(4096)
            if not received and not head:
                return
            head += received or b"\r\n\r\n"
        text = head.decode("latin-1")
        line = text.split("\r\n")[0]
        words = line.split(" ")
        path = words[1] if len(words) == 3 else line
        with self._lock:
            # What is not a plain request is recorded as it is, so that the test fails.
            self.requests.append(path if len(words) == 3 and words[0] == "GET" else line)
            self.heads.append(text)
        answer = self.answers.get(path, NOT_FOUND)

        if answer.last:
            self.refuse()
        if answer.gate and answer.gate_after is None:
            answer.gate.hold()
        if answer.silent:
            if answer.reset:
                self._set_reset(connection)
            return
        head = answer.head()
        body = answer.body if answer.cut_after is None else answer.body[: answer.cut_after]
        if answer.gate and answer.gate_after is not None:
            connection.sendall(head + body[: answer.gate_after])
            head, body = b"", body[answer.gate_after :]
            answer.gate.hold()
        if answer.chunked:
            body = b"%x\r\n%s\r\n0\r\n\r\n" % (len(body), body)
        # Head and body at once: what does not fit the announced length arrives together with it.
        if answer.pause:
            connection.sendall(head)
            for byte in body:
                connection.sendall(bytes([byte]))
                threading.Event().wait(answer.pause)
        else:
            connection.sendall(head + body[:4096])
            # In pieces: the time-out is for each call.
            for start in range(4096, len(body), 1 << 20):
                connection.sendall(memoryview(body)[start : start + (1 << 20)])
        if answer.reset:
            self._set_reset(connection)
            return
        connection.shutdown(socket.SHUT_WR)
        # Wait for the other side's close: closing first could reset what it has not read yet.
        while connection.recv(4096):
            pass

    @staticmethod
    def _set_reset(connection: socket.socket) -> None:
        """A close with a linger time of nought sends a reset."""
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


class ClosedPort:
    """A loopback port that refuses connections and is kept from other processes."""

    def __init__(self) -> None:
        self._socket = socket.socket()
        self._socket.bind(("127.0.0.1", 0))
        self.url = f"http://127.0.0.1:{self._socket.getsockname()[1]}/"

    def close(self) -> None:
        self._socket.close()
