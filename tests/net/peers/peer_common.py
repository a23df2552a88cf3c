"""What every peer launcher shares with the suites that start it.

A launcher runs until its standard input closes: the suite keeps the pipe
open while it uses the peer and closes it to stop it (the pipe also closes
when the suite dies, so no peer outlives its test).  On standard output it
prints one line: "ready key=value ..." once the peer accepts connections, or
"missing <reason>" when the peer cannot run here.
"""
import os
import sys


def announce(**fields):
    print("ready " + " ".join(f"{key}={value}" for key, value in fields.items()), flush=True)


def missing(reason):
    print(f"missing {reason}", flush=True)
    sys.exit(0)


def require_program(path, package):
    if not os.access(path, os.X_OK):
        missing(f"{path} not found (Debian package {package})")


def wait_for_stop():
    """Blocks until the suite closes our standard input."""
    while sys.stdin.buffer.read(4096):
        pass
