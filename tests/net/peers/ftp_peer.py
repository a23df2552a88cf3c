"""pyftpdlib on 127.0.0.1, for the FTP suite's IPv4 uploads.

Usage: ftp_peer.py FOLDER USER PASSWORD

USER logs in with PASSWORD and may read, write and make directories in
FOLDER, which is the root ("/") the client sees.  Passive and active data
connections are both allowed.
"""
import logging
import sys
import threading

from peer_common import announce, missing, wait_for_stop

try:
    from pyftpdlib.authorizers import DummyAuthorizer
    from pyftpdlib.handlers import FTPHandler
    from pyftpdlib.servers import FTPServer
except ImportError:
    missing("pyftpdlib is not installed (Debian package python3-pyftpdlib)")


def main():
    folder, user, password = sys.argv[1:4]
    authorizer = DummyAuthorizer()
    authorizer.add_user(user, password, folder, perm="elradfmwMT")
    logging.basicConfig(level=logging.WARNING)
    # No pause after a failed login: the suite tries wrong passwords.
    handler = type("Handler", (FTPHandler,), {"authorizer": authorizer,
                                              "auth_failed_timeout": 0})
    server = FTPServer(("127.0.0.1", 0), handler)
    thread = threading.Thread(target=server.serve_forever, kwargs={"timeout": 0.5})
    thread.start()
    announce(port=server.address[1])
    try:
        wait_for_stop()
    finally:
        server.close_all()
        thread.join()


if __name__ == "__main__":
    main()
