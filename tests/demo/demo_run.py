"""A run of tarvo-demo on System V keys of this test process's own, in a
folder of its own; everything it made is removed when the test ends."""
import contextlib, os, re, shutil, signal, subprocess, sys, tempfile

def skip_or_fail(reason):
    """A missing peer: skipped on a normal run, a failure in CI."""
    print("skipped: " + reason)
    sys.exit(1 if os.environ.get("CI") == "true" else 77)


class DemoRun:
    def __init__(self, program):
        self.program, self.process = program, None
        self.folder = tempfile.mkdtemp(prefix="tarvo-demo-")
        profile = 0x30000000 + (os.getpid() % 0x100000) * 64
        ring = profile + 4097  # the profile's key; its writer lock is 16 above
        self.keys = {ring, ring + 16, ring + 32, 65524}  # and the schedule's lock
        with open(os.path.join(self.folder, "demo.ini"), "w") as config:
            config.write(f"[demo]\nprofile = {profile}\n[stream]\nport = 0\n")

    def start(self, *arguments):
        """Starts the demo and returns the live view's address."""
        self.process = subprocess.Popen(
            [self.program, "--config=demo.ini", "--run-dir=run", *arguments],
            cwd=self.folder, stdout=subprocess.PIPE, text=True)
        for line in self.process.stdout:
            found = re.search(r"live view on (http://\S+)", line)
            if found:
                return found.group(1)
        raise AssertionError("the demo ended before serving: %d" % self.process.wait())

    def finish(self):
        """Waits for the demo's end: the rest of its output and its exit status."""
        return self.process.stdout.read(), self.process.wait()

    def children(self):
        """The role processes, by name (tarvo-capture, ...)."""
        pid = self.process.pid
        with open(f"/proc/{pid}/task/{pid}/children") as listing:
            pids = [int(child) for child in listing.read().split()]
        return {open(f"/proc/{child}/comm").read().strip(): child for child in pids}

    def path(self, name):
        return os.path.join(self.folder, "run", name)

    def objects_left(self):
        """The System V objects under the demo's keys, as ipcs lists them."""
        listing = subprocess.run(["ipcs", "-m", "-s", "-q"], capture_output=True, text=True)
        keys = {int(word, 16) for word in re.findall(r"^(0x[0-9a-f]+)\s", listing.stdout, re.M)}
        return sorted(keys & self.keys)

    def close(self):
        if self.process and self.process.poll() is None:
            for pid in [*self.children().values(), self.process.pid]:
                with contextlib.suppress(ProcessLookupError):
                    os.kill(pid, signal.SIGKILL)
            self.process.wait()
        for key in self.objects_left():
            for kind in ("-M", "-S", "-Q"):
                subprocess.run(["ipcrm", kind, str(key)], capture_output=True)
        shutil.rmtree(self.folder, ignore_errors=True)
