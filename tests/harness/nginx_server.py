"""A real web server, as a studio would run it: nginx over a folder on a free loopback port."""

import ctypes
import dataclasses
import http.client
import pathlib
import signal
import socket
import subprocess
import time

from harness.constants import TIMEOUT



def die_with_parent() -> None:
    """Makes a child end when this process does, however that ends."""
    ctypes.CDLL(None).prctl(1, signal.SIGTERM)  # PR_SET_PDEATHSIG


@dataclasses.dataclass(frozen=True)
class Request:
    path: str
    status: int
    size: int


class NginxServer:
    """Serves `tree`; configuration and logs are in `folder`, which is made. `locations` is added to
    the configuration."""

    OWN_REQUEST = "/settle"

    def __init__(self, folder: pathlib.Path, tree: pathlib.Path, locations: str = "") -> None:
        self.folder = folder
        self.tree = tree
        self.log = folder / "access.log"
        self.process: subprocess.Popen | None = None
        self.read = 0
        folder.mkdir()
        tree.mkdir(exist_ok=True)
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        temporary = "\n".join(
            f'  {kind}_temp_path "{folder}/{kind}";'
            for kind in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi")
        )
        (folder / "nginx.conf").write_text(
            f"""\
daemon off;
master_process off;
pid "{folder}/nginx.pid";
events {{}}
http {{
{temporary}
  log_format demo '$status $body_bytes_sent $request_uri';
  access_log "{self.log}" demo;
  server {{
    listen 127.0.0.1:{self.port};
    root "{tree}";
    {locations}
  }}
}}
"""
        )

    def start(self) -> None:
        self.process = subprocess.Popen(
            ["/usr/sbin/nginx", "-e", self.folder / "error.log", "-c", self.folder / "nginx.conf"],
            stdin=subprocess.DEVNULL,
            preexec_fn=die_with_parent,
        )
        deadline = time.monotonic() + TIMEOUT
        while True:
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", self.port)) == 0:
                    return
            if self.process.poll() is not None or time.monotonic() > deadline:
                raise RuntimeError("nginx did not start: " + (self.folder / "error.log").read_text())
            time.sleep(0.05)

    def stop(self) -> None:
        if self.process is not None:
            self.process.terminate()
            self.process.wait()
            self.process = None

    def url(self, base: str) -> str:
        return f"http://127.0.0.1:{self.port}/{base}/"

    def settle(self) -> None:
        """Returns when all requests answered so far are logged: nginx, which is one process here,
        logs a request before it turns to the next, and this asks for one more."""
        if self.process is not None:
            connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=TIMEOUT)
            connection.request("GET", self.OWN_REQUEST, headers={"Connection": "close"})
            connection.getresponse().read()
            connection.close()

    def new_requests(self) -> list[Request]:
        """The Launcher's requests that were logged since the last call."""
        if not self.log.exists():
            return []
        with self.log.open("rb") as log:
            log.seek(self.read)
            complete = log.read().rpartition(b"\n")
        self.read += len(complete[0]) + len(complete[1])
        requests = []
        for line in complete[0].decode().splitlines():
            status, size, path = line.split(" ", 2)
            if path != self.OWN_REQUEST:
                requests.append(Request(path, int(status), int(size)))
        return requests


class FolderServer:
    """nginx over a folder, with what a run needs of the scripted server."""

    def __init__(self, temp_dir: pathlib.Path) -> None:
        self.folder = temp_dir / "tree"
        self._nginx = NginxServer(temp_dir / "nginx", self.folder)
        self._requests: list[str] = []
        self._nginx.start()
        self.url = f"http://127.0.0.1:{self._nginx.port}/"

    @property
    def requests(self) -> list[str]:
        self._nginx.settle()
        self._requests += [request.path for request in self._nginx.new_requests()]
        return self._requests

    def serve(self, path: str, content: bytes) -> None:
        file = self.folder / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(content)

    def remove(self, path: str) -> None:
        (self.folder / path).unlink()

    def close(self) -> None:
        self._nginx.stop()
