"""A virtual desktop for measurements, and what the kernel says about the programs on it.

Home folder, bus, display and port belong to the session; nothing of the user's is read or written, and everything
that it started is ended with it.
"""
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

# A script that is told to end takes its session down on the way out.
signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))

TICKS_PER_SECOND = os.sysconf("SC_CLK_TCK")


def require(commands):
    """Ends the script with what to install when one of the commands is missing. Maps commands to Debian packages."""
    missing = sorted({package for command, package in commands.items() if not shutil.which(command)})
    if missing:
        sys.exit(f"These programs are needed: sudo apt install {' '.join(missing)}")


def wait_until(condition, what, seconds=15):
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            raise TimeoutError(f"{what} did not come within {seconds} s")
        time.sleep(0.05)


def free_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]


class Session:
    """An X server of the given size, with a session bus, a window manager and accessibility switched on."""

    def __init__(self, size, settings=None):
        self.size = size
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="ostrel-bench."))
        self.home = self.folder / "home"
        self.programs = []
        self.environment = self._environment()
        self._write_settings(settings or {})

    def __enter__(self):
        try:
            self.server = self._start_server()
            self._start_bus()
            self._start_window_manager()
        except BaseException:
            self.close()
            raise
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        for program in reversed(self.programs):
            end(program)
        shutil.rmtree(self.folder, ignore_errors=True)

    def start(self, name, *command, **options):
        """Starts a program on this desktop; what it says goes into `<name>.log`."""
        with open(self.log(name), "wb") as log:
            program = subprocess.Popen(command, env=self.environment, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                       **options)
        self.programs.append(program)
        return program

    def run(self, *command, check=True):
        return subprocess.run(command, env=self.environment, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              check=check, timeout=60).stdout

    def log(self, name):
        return self.folder / f"{name}.log"

    def record(self, ostrel):
        """Starts a recording and waits until it runs. Returns the recorder's process."""
        recorder = self.start("ostrel", str(ostrel), "record")
        wait_until(lambda: b"Recording into" in self.log("ostrel").read_bytes() or recorder.poll() is not None,
                   "the recording")
        if recorder.poll() is not None:
            raise RuntimeError(self.log("ostrel").read_text())
        return recorder

    def observer_of(self, recorder):
        """The process id of the recorder's companion."""
        return children_of(recorder.pid)[0]

    def _environment(self):
        runtime = self.folder / "runtime"
        runtime.mkdir(mode=0o700)
        environment = {key: value for key, value in os.environ.items()
                       if key not in ("WAYLAND_DISPLAY", "XAUTHORITY", "MORAVEL_REPO_ROOT")}
        return environment | {
            "HOME": str(self.home),
            "XDG_RUNTIME_DIR": str(runtime),
            "XDG_CONFIG_HOME": str(self.home / ".config"),
            "XDG_DATA_HOME": str(self.home / ".local/share"),
            "XDG_CACHE_HOME": str(self.home / ".cache"),
            "DBUS_SESSION_BUS_ADDRESS": f"unix:path={runtime}/bus",
            "GSETTINGS_BACKEND": "memory",
            "LC_ALL": "C.UTF-8",
        }

    def _write_settings(self, settings):
        folder = self.home / ".ostrel"
        folder.mkdir(parents=True, mode=0o700)
        (folder / "settings.json").write_text(json.dumps({"localPort": free_port()} | settings))

    def _start_server(self):
        number = self.folder / "display"
        with open(number, "wb") as descriptor:
            server = self.start("Xvfb", "Xvfb", "-displayfd", str(descriptor.fileno()), "-screen", "0",
                                f"{self.size}x24", "-nolisten", "tcp", "-noreset", pass_fds=[descriptor.fileno()])
        wait_until(number.read_text, "the X server")
        self.environment["DISPLAY"] = ":" + number.read_text().strip()
        return server

    def _start_bus(self):
        address = self.environment["DBUS_SESSION_BUS_ADDRESS"]
        self.start("bus", "dbus-daemon", "--session", "--nofork", "--nopidfile", f"--address={address}")
        wait_until(pathlib.Path(self.environment["XDG_RUNTIME_DIR"], "bus").exists, "the session bus")

    def _start_window_manager(self):
        ready = self.folder / "window-manager-is-up"
        self.start("openbox", "openbox", "--startup", f"touch {ready}")
        wait_until(ready.exists, "the window manager")


def end(program):
    if program.poll() is None:
        program.terminate()
        try:
            program.wait(timeout=10)
        except subprocess.TimeoutExpired:
            program.kill()
            program.wait()


def interrupt(program, seconds=60):
    """Ends a recording as Ctrl+C does."""
    program.send_signal(signal.SIGINT)
    program.wait(timeout=seconds)


def children_of(pid):
    children = []
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        children += [int(child) for child in (task / "children").read_text().split()]
    return children


def cpu_seconds(pid):
    """Processor time of a process and of its ended threads, in steps of 10 ms."""
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / TICKS_PER_SECOND


def thread_cpu_seconds(pid):
    """Processor time of each living thread, by name; threads of one name are added up."""
    seconds = {}
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        try:
            name = (task / "comm").read_text().strip()
            nanoseconds = int((task / "schedstat").read_text().split()[0])
        except (FileNotFoundError, ProcessLookupError):
            continue
        seconds[name] = seconds.get(name, 0) + nanoseconds / 1e9
    return seconds


def memory_mb(pid):
    """Proportional set size: (all of it, the part that is not backed by files), or zeros when the process is gone."""
    try:
        lines = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()
    except (FileNotFoundError, ProcessLookupError):
        return 0.0, 0.0
    sizes = {line.split(":")[0]: int(line.split()[1]) / 1000 for line in lines if line.startswith("Pss")}
    if "Pss" not in sizes:
        return 0.0, 0.0
    return sizes["Pss"], sizes["Pss"] - sizes["Pss_File"]


def descriptor_count(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def thread_count(pid):
    return len(os.listdir(f"/proc/{pid}/task"))


def print_table(heads, rows):
    cells = [heads] + [[str(cell) for cell in row] for row in rows]
    widths = [max(len(row[column]) for row in cells) for column in range(len(heads))]
    for number, row in enumerate(cells):
        print("| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |", flush=True)
        if number == 0:
            print("|" + "|".join("-" * (width + 2) for width in widths) + "|")
