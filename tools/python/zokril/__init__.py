"""Drive the entity on a PC from Python: a client of rilproxy-host's harness protocol.

rilproxy-host --interactive --format json runs one command per line of its standard input and
answers every line, once it has finished, with exactly one JSON object on stdout: {"kind":"done",
"line":N,...} or {"kind":"error","line":N,"message":...}. Frames, posted events and the events the
entity delivers come in the same stream, each object with a monotonic time ("mono_us"). This
module writes the lines, reads the stream up to each line's answer and raises LineError for an
error. Standard library only.

    from zokril import Runner
    with Runner(["--sim"]) as rig:
        rig.post("EVENT_SETUP_DATA_CALL_REQ", size=704, text={0: "16", 128: "0", 256: "ims"},
                 i32={644: 2, 648: 1})
        reply = rig.wait("EVENT_SETUP_DATA_CALL_RESP")
        print(reply["fields"]["addresses"])      # ['10.0.0.2', '2001:db8::2']
        rig.sim("fail", "RIL_REQUEST_SETUP_DATA_CALL", "ZOKRIL_E_FDN_CHECK_FAILURE")

Pitfall: `sim close` and `disconnect` end the runner's process (the entity's teardown), so they
get no answer; send them with `send_last`.
"""

import json
import os
import select
import subprocess
import time

__all__ = ["Runner", "LineError", "RunnerGone", "default_runner"]


class LineError(Exception):
    """A command line the runner refused or that failed (a bad line, a wait that timed out)."""

    def __init__(self, line, command, message):
        super().__init__("line %d (%s): %s" % (line, command, message))
        self.line = line
        self.command = command
        self.message = message


class RunnerGone(Exception):
    """The runner ended (or stopped answering) before it answered a line."""


def default_runner():
    """$ZOKRIL_RUNNER, else the native build tree's rilproxy-host of this checkout."""
    env = os.environ.get("ZOKRIL_RUNNER")
    if env:
        return env
    top = os.path.dirname(os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))))
    return os.path.join(top, "out", "native", "tools", "rilproxy-host")


def _escape(text):
    """A text for str=OFF:TEXT, whose value is one blank-free token."""
    table = {"\\": "\\\\", " ": "\\s", "\r": "\\r", "\n": "\\n", "\t": "\\t"}
    return "".join(table.get(c, c) for c in text)


class Runner:
    """One rilproxy-host process in interactive JSON mode.

    args: the runner's other options (["--sim"], ["--sim", "--chaos", "7"], ...).
    timeout: seconds to wait for any line's answer beyond the line's own time-out.
    Every object read stays in `objects`, in stream order.
    """

    def __init__(self, args=("--sim",), runner=None, quiet=True, timeout=30.0, stderr=None):
        command = [runner or default_runner(), "--interactive", "--format", "json"]
        command += ["--quiet"] if quiet else []
        command += list(args)
        self.timeout = timeout
        self.objects = []
        self._line = 0
        self._buffer = b""
        self._proc = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                      stderr=stderr if stderr is not None else subprocess.DEVNULL)

    @property
    def pid(self):
        return self._proc.pid

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    # -- the protocol ---------------------------------------------------------------------

    def command(self, text, seconds=0.0):
        """Runs one line and returns its done object; raises LineError with the line's error.

        seconds: how long the line itself may take (a wait's time-out), beyond `timeout`.
        """
        self.send_last(text)
        while True:
            obj = self._next_object(self.timeout + seconds)
            if obj.get("kind") in ("done", "error") and obj.get("line") == self._line:
                if obj["kind"] == "error":
                    raise LineError(self._line, text, obj["message"])
                return obj

    def send_last(self, text):
        """Writes a line without reading its answer (for commands that end the process)."""
        if "\n" in text:
            raise ValueError("one command per line: %r" % text)
        self._line += 1
        try:
            self._proc.stdin.write((text + "\n").encode())
            self._proc.stdin.flush()
        except BrokenPipeError:
            raise RunnerGone("the runner ended before line %d: %s" % (self._line, text))

    def close(self):
        """Ends the input, reads what is left and returns the runner's exit status."""
        if self._proc.stdin and not self._proc.stdin.closed:
            try:
                self._proc.stdin.close()
            except BrokenPipeError:
                pass
        try:
            while True:
                self._next_object(self.timeout)
        except RunnerGone:
            pass
        return self._proc.wait(timeout=self.timeout)

    # -- commands -------------------------------------------------------------------------

    def post(self, event, data=b"", size=None, i32=None, text=None, sender=None):
        """post EVENT: `data` bytes first, then i32 {offset: value} and text {offset: str}."""
        words = ["post", str(event)]
        if data:
            words.append(bytes(data).hex())
        for offset, value in sorted((i32 or {}).items()):
            words.append("i32=%d:%d" % (offset, value))
        for offset, value in sorted((text or {}).items()):
            words.append("str=%d:%s" % (offset, _escape(value)))
        if size is not None:
            words.append("size=%d" % size)
        if sender is not None:
            words.append("from=%d" % sender)
        return self.command(" ".join(words))

    def wait(self, event, timeout_ms=None):
        """Waits for the next delivery of `event` and returns it (with "fields" when decoded)."""
        words = ["wait", str(event)] + ([str(timeout_ms)] if timeout_ms is not None else [])
        return self.command(" ".join(words), (timeout_ms or 5000) / 1000)["delivery"]

    def at(self, channel, sim_id, token, text):
        return self.command("at %d %d %d %s" % (channel, sim_id, token, _escape(text)))

    def sim(self, *words):
        """A `sim` command: sim("fail", "RIL_REQUEST_SETUP_DATA_CALL", 14), sim("hold")."""
        return self.command(" ".join(["sim"] + [str(w) for w in words]))

    def wait_request(self, request, timeout_ms=None):
        """Waits until the daemon has read the next `request` (id or RIL name)."""
        words = ["sim", "wait-request", str(request)]
        words += [str(timeout_ms)] if timeout_ms is not None else []
        return self.command(" ".join(words), (timeout_ms or 5000) / 1000)

    def events(self, kind=None, name=None):
        """The objects read so far, of one kind ("reply", "rx", "post", ...) and/or name."""
        return [o for o in self.objects
                if (kind is None or o.get("kind") == kind) and (name is None or o.get("name") == name)]

    # -- the stream -----------------------------------------------------------------------

    def _next_object(self, seconds):
        deadline = time.monotonic() + seconds
        while b"\n" not in self._buffer:
            left = deadline - time.monotonic()
            ready = select.select([self._proc.stdout], [], [], max(left, 0))[0] if left > 0 else []
            if not ready:
                raise RunnerGone("no answer within %.0f s after line %d" % (seconds, self._line))
            chunk = os.read(self._proc.stdout.fileno(), 1 << 16)
            if not chunk:
                raise RunnerGone("the runner ended (status %s) before answering line %d"
                                 % (self._proc.wait(), self._line))
            self._buffer += chunk
        raw, self._buffer = self._buffer.split(b"\n", 1)
        obj = json.loads(raw)
        self.objects.append(obj)
        return obj
