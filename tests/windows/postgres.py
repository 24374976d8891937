"""A PostgreSQL server on loopback, in a temporary folder."""

from __future__ import annotations

import os
import pathlib
import shutil
import signal
import socket
import subprocess
import tempfile
import time
from typing import List

LONGEST_WAIT = 60  # seconds


class PostgresServer:
    def __init__(self) -> None:
        # As root the server runs for its own account, in a folder that is that account's.
        is_root = os.geteuid() == 0
        account = ["--reuid=postgres", "--regid=postgres", "--clear-groups"] if is_root else []
        # It ends with the test.
        self._start = ["setpriv", *account, "--pdeathsig=QUIT"]
        self._programs = max(pathlib.Path("/usr/lib/postgresql").glob("*/bin"))
        self._folder = pathlib.Path(tempfile.mkdtemp(prefix="kxdata7-postgres-"))
        self._server: subprocess.Popen[bytes] | None = None
        try:
            if is_root:
                shutil.chown(self._folder, "postgres", "postgres")
            data = self._folder / "data"
            self._run(
                "initdb",
                f"--pgdata={data}",
                "--username=plant",
                "--auth=trust",
                "--encoding=UTF8",
                "--no-locale",
                "--no-sync",
                "--no-instructions",
            )
            with socket.socket() as probe:
                probe.bind(("127.0.0.1", 0))
                self.port = probe.getsockname()[1]
            command = [*self._start, str(self._programs / "postgres"), "-D", str(data), "-p", str(self.port)]
            for setting in ("listen_addresses=127.0.0.1", "unix_socket_directories=", "fsync=off"):
                command += ["-c", setting]
            with open(self._folder / "log", "wb") as log:
                self._server = subprocess.Popen(
                    command,
                    stdin=subprocess.DEVNULL,
                    stdout=log,
                    stderr=log,
                    cwd=self._folder,
                    start_new_session=True,
                )
            self._await()
        except BaseException:
            self.stop()
            raise

    def _run(self, program: str, *arguments: str) -> None:
        command: List[str] = [*self._start, str(self._programs / program), *arguments]
        subprocess.run(command, cwd=self._folder, check=True, stdout=subprocess.DEVNULL, timeout=LONGEST_WAIT)

    def _await(self) -> None:
        end = time.monotonic() + LONGEST_WAIT
        ready = [str(self._programs / "pg_isready"), "-q", "-h", "127.0.0.1", "-p", str(self.port)]
        while subprocess.run(ready, timeout=LONGEST_WAIT).returncode != 0:
            if time.monotonic() > end or (self._server and self._server.poll() is not None):
                raise RuntimeError("PostgreSQL does not start: " + (self._folder / "log").read_text())
            time.sleep(0.05)

    @property
    def connection_string(self) -> str:
        return (f"Driver={{PostgreSQL Unicode}};Server=127.0.0.1;Port={self.port};"
                "Database=postgres;Uid=plant")

    def stop(self) -> None:
        if self._server is not None:
            self._server.send_signal(signal.SIGINT)  # ends its sessions, too
            try:
                self._server.wait(timeout=5)
            except subprocess.TimeoutExpired:
                self._server.send_signal(signal.SIGQUIT)
                self._server.wait(timeout=LONGEST_WAIT)
            self._server = None
        shutil.rmtree(self._folder, ignore_errors=True)
