"""A host that is made up, with the agent, vrx-sn and vrx-web over it: what the browser's tests look at."""

import itertools
import json
import os
import re
import shutil
import signal
import subprocess
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request

SOURCES = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILT = os.environ.get("ZT_BUILT", os.path.join(SOURCES, "build", "release"))
PICTURES = os.path.join(SOURCES, "build", "web")
ADAPTERS = "adapters count=4 node=20:00:00:25:b5:01:00:00 port=10:00:00:25:b5:01:00:00\n"
# What takes minutes in life takes seconds here; what is open stays open.
SOON = "times settle=1 tell=1 quiet=600 close=600 join=30"


def built(name):
    """A program that was built."""
    return os.path.join(BUILT, name)


AGENT = built("backend/scopeagent/vrx-sca")
LIBRARY = built("libdfc/sim/libdfc-sim.so")
SIM = built("libdfc/sim/vrx-sim")
HOST = built("sensor/vrx-hostsim/vrx-hostsim")
SENSOR = built("sensor/vrx-sn/vrx-sn")
SCOPE = built("sensor/vrx-scope/vrx-scope")
WEB = built("sensor/vrx-web/vrx-web")


def wait_until(condition, what, limit=20.0):
    """What the condition gives once it is true. From half of the limit on it is told: a test that is nearly too slow."""
    begin = time.monotonic()
    while True:
        found = condition()
        took = time.monotonic() - begin
        if found:
            if took > limit / 2:
                print(f"slow: {what} took {took:.1f} of {limit:.0f} s", flush=True)
            return found
        if took > limit:
            raise AssertionError(f"not within {limit:.0f} s: {what}")
        time.sleep(0.02)


numbers = itertools.count(1)


class Program:
    """A process that ends with the test, its output in a file."""

    def __init__(self, folder, command, environment=None):
        self.name = os.path.basename(command[0])
        self.log = os.path.join(folder, f"{self.name}.{next(numbers)}.out")
        with open(self.log, "xb") as log:
            self.process = subprocess.Popen(command, env={**os.environ, **(environment or {})},
                                            stdin=subprocess.DEVNULL, stdout=log, stderr=log)

    def said(self):
        with open(self.log, encoding="utf-8", errors="replace") as log:
            return log.read()

    def end(self, how=signal.SIGTERM):
        if self.process.poll() is None:
            self.process.send_signal(how)
        try:
            return self.process.wait(30)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise AssertionError(f"{self.name} does not end: {self.said()}") from None


class Web(Program):
    """vrx-web over a store."""

    def __init__(self, folder, store, *options, port=0):
        super().__init__(folder, [WEB, "--store", store, "--figures", folder, "--listen", f"127.0.0.1:{port}", *options])
        self.port = wait_until(self.find_port, "vrx-web serves")
        self.address = f"http://127.0.0.1:{self.port}"

    def find_port(self):
        if self.process.poll() is not None:
            raise AssertionError("vrx-web has ended: " + self.said())
        told = re.search(r"serving on 127\.0\.0\.1:(\d+)", self.said())
        return told and int(told.group(1))

    def ask(self, path, token=None):
        """Status and body."""
        request = urllib.request.Request(self.address + path)
        if token:
            request.add_header("Authorization", "Bearer " + token)
        try:
            with urllib.request.urlopen(request, timeout=20) as answer:
                return answer.status, answer.read().decode()
        except urllib.error.HTTPError as error:
            return error.code, error.read().decode()

    def health(self):
        return json.loads(self.ask("/healthz")[1])

    def api(self, path, **parameters):
        query = urllib.parse.urlencode(parameters, doseq=True)
        status, body = self.ask("/api/v1/" + path + ("?" + query if query else ""))
        assert status == 200, (path, status, body)
        return json.loads(body)


class Site:
    """All of it. names: what the names file says, None: what the made-up host says; ready(root) may change the host
    before vrx-sn sees it; sensor and web: more options of vrx-sn and vrx-web."""

    def __init__(self, names=None, ready=None, sensor=(), web=()):
        # As /run is: vrx-sn shows its figures there alone.
        self.folder = tempfile.mkdtemp(prefix="zt-web-", dir="/dev/shm")
        self.programs = []
        try:
            self.start(names, ready, sensor, web)
        except BaseException:
            self.end()
            raise

    def start(self, names, ready, sensor, web):
        self.store = os.path.join(self.folder, "history.db")
        self.root = os.path.join(self.folder, "host")
        self.control = os.path.join(self.folder, "sim.socket")
        os.mkdir(self.root)
        self.environment = {
            "ZT_VRX_SENSOR_DIR": self.folder, "RUNTIME_DIRECTORY": self.folder, "ZT_LIBDFC": LIBRARY,
            "ZT_LIBDFC_SIM": self.write("start.scenario", ADAPTERS), "ZT_LIBDFC_SIM_CONTROL": self.control,
            "ZT_VRX_HOSTSIM": os.path.join(self.root, "run/hostsim.socket")}
        self.run(HOST, "--root", self.root)
        wait_until(lambda: os.path.exists(self.environment["ZT_VRX_HOSTSIM"]), "the made-up host stands")
        if ready:
            ready(self.root)
        self.start_agent()
        names = self.write("names", names) if names else os.path.join(self.root, "etc/vrx-sca/names")
        self.sensor_command = [SENSOR, "--root", self.root, "--names", names, "--store", self.store, "--host", "server1",
                               "--every", "0.2", "--incident", SOON, *sensor]
        self.start_sensor()
        wait_until(lambda: '"collecting":true' in self.scope("status", "--json", check=False), "vrx-sn collects")
        self.web = Web(self.folder, self.store, *web)
        self.programs.append(self.web)

    def write(self, name, text):
        path = os.path.join(self.folder, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(path, 0o644)
        return path

    def run(self, *command):
        program = Program(self.folder, list(command), self.environment)
        self.programs.append(program)
        return program

    def more_web(self, store, *options, port=0):
        """Another vrx-web, which ends with the site."""
        web = Web(self.folder, store, *options, port=port)
        self.programs.append(web)
        return web

    def start_agent(self):
        self.agent = self.run(AGENT, "-D", "false", "-d", "0")

    def start_sensor(self):
        self.sensor = self.run(*self.sensor_command)

    def scope(self, *words, check=True):
        return subprocess.run([SCOPE, *words], env={**os.environ, **self.environment}, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, check=check, timeout=60).stdout

    def note(self, text, *options):
        self.scope("note", "--store", self.store, *options, text)

    def play(self, lines):
        """Has the lines played, and returns when they have been."""
        for line in filter(None, (line.strip() for line in lines.splitlines())):
            told = subprocess.run([SIM, "send", line], env={**os.environ, **self.environment}, timeout=60,
                                  stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
            assert told.returncode == 0, (line, told.stdout, told.stderr)

    def end(self):
        for program in reversed(self.programs):
            try:
                program.end()
            except AssertionError as error:
                print(error, flush=True)
        shutil.rmtree(self.folder, ignore_errors=True)
