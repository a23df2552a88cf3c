"""GNU inetutils ftpd on [::1], started per connection as inetd would.

Usage: ftpd_peer.py FOLDER

Creates a local user whose home is FOLDER (needs root), listens on a port
of ::1 the system picks, and hands every connection to /usr/sbin/ftpd as
its standard input and output.  Announces the port, the user and its
password; the user is removed again when the peer stops.

ftpd looks up the name of its client's address.  So that looking up ::1
stays on this machine, each session runs in a private mount namespace
whose /etc/hosts also names ::1.
"""
import os
import pwd
import secrets
import selectors
import socket
import subprocess
import sys
import tempfile

from peer_common import announce, missing, require_program

FTPD = "/usr/sbin/ftpd"
# Runs ftpd with $0 mounted over /etc/hosts, seen by this session alone.
SESSION = ["unshare", "--mount", "--propagation", "private", "sh", "-c",
           f'mount --bind "$0" /etc/hosts && exec {FTPD}']


def create_user(home):
    name = f"tarvo{os.getpid()}"
    password = secrets.token_hex(8)
    subprocess.run(["userdel", name], capture_output=True)  # left by a killed run
    made = subprocess.run(["useradd", "--no-create-home", "--home-dir", home, "--shell",
                           "/bin/sh", name], capture_output=True, text=True)
    if made.returncode != 0:
        missing(f"useradd failed: {made.stderr.strip()}")
    subprocess.run(["chpasswd"], input=f"{name}:{password}\n".encode(), check=True,
                   capture_output=True)
    account = pwd.getpwnam(name)
    os.chown(home, account.pw_uid, account.pw_gid)
    return name, password


def main():
    home = sys.argv[1]
    require_program(FTPD, "inetutils-ftpd")
    if os.geteuid() != 0:
        missing("ftpd needs a local user, which only root may create")
    if subprocess.run(SESSION[:4] + ["true"], capture_output=True).returncode != 0:
        missing("no private mount namespace for ftpd's sessions")
    hosts = tempfile.NamedTemporaryFile("w", prefix="tarvo-hosts-")
    with open("/etc/hosts") as system:
        hosts.write(system.read() + "\n::1 localhost\n")
    hosts.flush()
    os.chmod(hosts.name, 0o644)  # read also after ftpd became the user
    listener = socket.socket(socket.AF_INET6)
    listener.bind(("::1", 0))
    listener.listen(8)
    name, password = create_user(home)
    sessions = []
    try:
        announce(port=listener.getsockname()[1], user=name, password=password)
        events = selectors.DefaultSelector()
        events.register(listener, selectors.EVENT_READ)
        events.register(sys.stdin, selectors.EVENT_READ)
        while True:
            ready = [key.fileobj for key, _ in events.select()]
            if sys.stdin in ready and not sys.stdin.buffer.read1(4096):
                break
            if listener in ready:
                connection, _ = listener.accept()
                sessions.append(subprocess.Popen(SESSION + [hosts.name], stdin=connection,
                                                 stdout=connection, stderr=subprocess.DEVNULL))
                connection.close()
    finally:
        listener.close()
        for session in sessions:
            session.kill()
            session.wait()
        subprocess.run(["userdel", name], capture_output=True)
        hosts.close()


if __name__ == "__main__":
    main()
