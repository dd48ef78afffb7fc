"""`qxhost studio` in a process of its own."""

import contextlib
import os
import resource
import signal
import socket
import subprocess

# Long enough for a loaded machine with sanitizers; nothing waits that long unless it fails.
PATIENCE = 60


class Server:
    """Starts with a clip and effects; `program` is the path of qxhost, QX_PROGRAM without one. `page` is a folder that the
    files of the page are read from."""

    def __init__(self, clip, *effects, looks, port=None, token=None, home=None, program=None, page=None):
        environment = dict(os.environ)
        if token:
            environment["QXHOST_STUDIO_TOKEN"] = token
        if page:
            environment["QXHOST_STUDIO_PAGE"] = str(page)
        command = [program or os.environ["QX_PROGRAM"], "studio", str(clip), *map(str, effects), "--looks", str(looks)]
        if port:
            command += ["--port", str(port)]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment,
                                        cwd=home or looks, text=True)
        self.address = self.process.stdout.readline().strip()
        if not self.address.startswith("http://"):
            self.process.kill()
            raise AssertionError("the server did not start: " + self.process.stderr.read())

    @contextlib.contextmanager
    def full_disk(self, size=40):
        """Meanwhile files of the server cannot grow beyond so many bytes: writing fails in the middle, as on a full disk."""
        process = self.process.pid
        before = resource.prlimit(process, resource.RLIMIT_FSIZE)
        resource.prlimit(process, resource.RLIMIT_FSIZE, (size, before[1]))
        try:
            yield
        finally:
            resource.prlimit(process, resource.RLIMIT_FSIZE, before)

    def stop(self):
        """Ends the server as Ctrl-C does; its exit code."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGINT)
        try:
            _, self.messages = self.process.communicate(timeout=PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.communicate()
            raise
        return self.process.returncode

    def kill(self):
        """Ends the server as nothing that it can prepare for."""
        self.process.kill()
        self.process.communicate()


def free_port():
    """A port that nobody listens on now."""
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        return taken.getsockname()[1]
