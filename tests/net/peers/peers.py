"""Real servers for the network suites, on loopback only.

Usage: peers.py KIND FOLDER, KIND one of nginx, pyftpdlib, ftpd, smtp.
Prints "ready port=N user=U password=P" once the server takes connections
(or "missing <reason>" when it cannot run here), serves files in FOLDER,
and stops when standard input closes (the suite closes it, or dies).
"""
import asyncio, base64, email, email.header, hashlib, logging, os, pwd, secrets, selectors
import signal, socket, subprocess, sys, tempfile, threading

HERE, USER, PASSWORD = os.path.dirname(os.path.abspath(__file__)), "cam", "secret"


def announce(port, user=USER, password=PASSWORD):
    print(f"ready port={port} user={user} password={password}", flush=True)


def missing(reason):
    sys.exit(print(f"missing {reason}", flush=True))


def write(path, data):
    with open(path, "wb") as out:
        out.write(data if isinstance(data, bytes) else data.encode())


def nginx(folder):
    if not os.access("/usr/sbin/nginx", os.X_OK):
        missing("/usr/sbin/nginx not found (Debian package nginx)")
    os.chmod(folder, 0o755)  # workers may run as another user
    os.makedirs(f"{folder}/www/cgi")
    write(f"{folder}/www/cgi/notify", "ok\n")
    digest = base64.b64encode(hashlib.sha1(PASSWORD.encode()).digest()).decode()
    write(f"{folder}/htpasswd", f"{USER}:{{SHA}}{digest}\n")
    listener = socket.create_server(("127.0.0.1", 0))  # queues connections from now on
    write(f"{folder}/nginx.conf", open(f"{HERE}/nginx.conf").read().format(
        folder, listener.getsockname()[1]))
    server = subprocess.Popen(["/usr/sbin/nginx", "-p", folder, "-c", f"{folder}/nginx.conf",
                               "-e", f"{folder}/error.log"], pass_fds=[listener.fileno()],
                              env=dict(os.environ, NGINX=f"{listener.fileno()};"))
    announce(listener.getsockname()[1])
    sys.stdin.buffer.read()
    server.send_signal(signal.SIGQUIT)  # graceful: the log is complete after it
    server.wait()


def pyftpdlib(folder):
    try:
        from pyftpdlib import authorizers, handlers, servers
    except ImportError:
        missing("pyftpdlib is not installed (Debian package python3-pyftpdlib)")
    handlers.FTPHandler.authorizer = authorizers.DummyAuthorizer()
    handlers.FTPHandler.authorizer.add_user(USER, PASSWORD, folder, perm="elradfmwMT")
    handlers.FTPHandler.auth_failed_timeout = 0  # the suite tries a wrong password
    server = servers.FTPServer(("127.0.0.1", 0), handlers.FTPHandler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    announce(server.address[1])
    sys.stdin.buffer.read()


# GNU inetutils ftpd on [::1], one process per connection as inetd starts it,
# for a local user made for the run.  ftpd looks up its client's name, so
# each session sees a private /etc/hosts naming ::1.
def ftpd(folder):
    session = ["unshare", "--mount", "--propagation", "private", "sh", "-c",
               'mount --bind "$0" /etc/hosts && exec /usr/sbin/ftpd']
    if not os.access("/usr/sbin/ftpd", os.X_OK):
        missing("/usr/sbin/ftpd not found (Debian package inetutils-ftpd)")
    if os.geteuid() or subprocess.run(session[:4] + ["true"], capture_output=True).returncode:
        missing("ftpd needs root for a local user and a private mount namespace")
    hosts = tempfile.NamedTemporaryFile("w", prefix="tarvo-hosts-")
    hosts.write(open("/etc/hosts").read() + "\n::1 localhost\n")
    hosts.flush()
    os.chmod(hosts.name, 0o644)
    user, password = f"tarvo{os.getpid()}", secrets.token_hex(8)
    subprocess.run(["useradd", "-M", "-d", folder, "-s", "/bin/sh", user], capture_output=True)
    subprocess.run(["chpasswd"], input=f"{user}:{password}\n".encode(), capture_output=True)
    os.chown(folder, pwd.getpwnam(user).pw_uid, pwd.getpwnam(user).pw_gid)
    listener = socket.create_server(("::1", 0), family=socket.AF_INET6)
    events, sessions = selectors.DefaultSelector(), []
    events.register(listener, selectors.EVENT_READ)
    events.register(sys.stdin, selectors.EVENT_READ)
    announce(listener.getsockname()[1], user, password)
    while not sys.stdin in [key.fileobj for key, _ in events.select()]:
        connection = listener.accept()[0]
        sessions.append(subprocess.Popen(session + [hosts.name], stdin=connection,
                                         stdout=connection, stderr=subprocess.DEVNULL))
        connection.close()
    for running in sessions:
        running.kill()
        running.wait()
    subprocess.run(["userdel", user], capture_output=True)


# aiosmtpd with AUTH LOGIN (mechanism names case-blind, as RFC 4954 has
# them).  Message N is saved in FOLDER/N: "message" raw, "envelope" (login,
# sender, recipients), and what Python's email package reads in it.
def smtp(folder):
    try:
        from aiosmtpd.smtp import SMTP, AuthResult
    except ImportError:
        missing("aiosmtpd is not installed (Debian package python3-aiosmtpd)")

    class Server(SMTP):
        async def smtp_AUTH(self, arg):
            mechanism, space, rest = (arg or "").partition(" ")
            await super().smtp_AUTH(mechanism.upper() + space + rest)

    class Saver:
        count = 0

        async def handle_DATA(self, server, session, envelope):
            Saver.count += 1
            message = email.message_from_bytes(envelope.original_content)
            parts = {part.get_filename() or part.get_content_type(): part.get_payload(decode=True)
                     for part in message.walk()}
            subject = email.header.decode_header(message["Subject"])
            saved = {"message": envelope.original_content,
                     "envelope": "\n".join([session.auth_data.login.decode() if
                                            session.authenticated else "",
                                            envelope.mail_from, *envelope.rcpt_tos]),
                     "headers": "".join(f"{h}: {message[h]}\n" for h in ("From", "To", "Cc")),
                     "subject": str(email.header.make_header(subject)),
                     "types": " ".join(part.get_content_type() for part in message.walk()),
                     "body": parts.get("text/plain") or b"",
                     "attachment": next((data for name, data in parts.items() if "." in name), b""),
                     "attachment.name": next((name for name in parts if "." in name), "")}
            os.makedirs(f"{folder}/{Saver.count}")
            for name, data in saved.items():
                write(f"{folder}/{Saver.count}/{name}", data)
            return "250 Message accepted"

    def check(server, session, envelope, mechanism, auth):
        accepted = (auth.login, auth.password) == (USER.encode(), PASSWORD.encode())
        return AuthResult(success=accepted, handled=False, auth_data=auth)

    async def serve():
        loop = asyncio.get_running_loop()
        server = await loop.create_server(lambda: Server(
            Saver(), hostname="peer.test", auth_require_tls=False, authenticator=check),
            "127.0.0.1", 0)
        announce(server.sockets[0].getsockname()[1])
        await loop.run_in_executor(None, sys.stdin.buffer.read)

    logging.getLogger("mail.log").setLevel(logging.ERROR)  # aiosmtpd's own deprecations
    asyncio.run(serve())


if __name__ == "__main__":
    {"nginx": nginx, "pyftpdlib": pyftpdlib, "ftpd": ftpd, "smtp": smtp}[sys.argv[1]](sys.argv[2])
