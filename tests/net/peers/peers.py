"""Real servers for the network suites, on loopback only.

Usage: peers.py KIND FOLDER, KIND one of nginx, pyftpdlib, ftpd, smtp.

Prints "ready port=N user=U password=P" once the server takes connections,
or "missing <reason>" when it cannot run here, and stops the server when
standard input closes (the suite closes it, or dies).  Files land in FOLDER.
"""
import asyncio, base64, email, email.header, hashlib, http.client, os, pwd, secrets
import selectors, signal, socket, subprocess, sys, tempfile, threading

USER, PASSWORD = "cam", "secret"


def announce(port, user=USER, password=PASSWORD):
    print(f"ready port={port} user={user} password={password}", flush=True)


def missing(reason):
    print(f"missing {reason}", flush=True)
    sys.exit(0)


def need(path, package):
    if not os.access(path, os.X_OK):
        missing(f"{path} not found (Debian package {package})")


def wait_for_stop():
    while sys.stdin.buffer.read(4096):
        pass


def write(path, data):
    with open(path, "wb") as out:
        out.write(data if isinstance(data, bytes) else data.encode())


# Basic authentication on /cgi/; each request logged as
# "request line|Host|Authorization|status".  nginx inherits our listener.
NGINX_CONFIG = """daemon off; pid {0}/nginx.pid; worker_processes 1; events {{}}
http {{ log_format notify '$request|$http_host|$http_authorization|$status';
  access_log {0}/access.log notify; client_body_temp_path {0}/body; proxy_temp_path {0}/p;
  fastcgi_temp_path {0}/f; uwsgi_temp_path {0}/u; scgi_temp_path {0}/s;
  server {{ listen 127.0.0.1:{1}; root {0}/www;
    location /cgi/ {{ auth_basic "events"; auth_basic_user_file {0}/htpasswd; }} }} }}"""


def nginx(folder):
    need("/usr/sbin/nginx", "nginx")
    os.chmod(folder, 0o755)  # workers may run as another user
    os.makedirs(f"{folder}/www/cgi")
    write(f"{folder}/www/cgi/notify", "ok\n")
    digest = base64.b64encode(hashlib.sha1(PASSWORD.encode()).digest()).decode()
    write(f"{folder}/htpasswd", f"{USER}:{{SHA}}{digest}\n")
    listener = socket.create_server(("127.0.0.1", 0))
    port = listener.getsockname()[1]
    write(f"{folder}/nginx.conf", NGINX_CONFIG.format(folder, port))
    server = subprocess.Popen(["/usr/sbin/nginx", "-p", folder, "-c", f"{folder}/nginx.conf",
                               "-e", f"{folder}/error.log"], pass_fds=[listener.fileno()],
                              env=dict(os.environ, NGINX=f"{listener.fileno()};"))
    try:
        probe = http.client.HTTPConnection("127.0.0.1", port, timeout=30)
        probe.request("GET", "/probe")
        probe.getresponse().read()
    except OSError as error:
        server.kill()
        missing(f"nginx did not serve: {error}")
    announce(port)
    wait_for_stop()
    server.send_signal(signal.SIGQUIT)  # graceful: the log is complete after it
    server.wait()


def pyftpdlib(folder):
    try:
        from pyftpdlib.authorizers import DummyAuthorizer
        from pyftpdlib.handlers import FTPHandler
        from pyftpdlib.servers import FTPServer
    except ImportError:
        missing("pyftpdlib is not installed (Debian package python3-pyftpdlib)")
    authorizer = DummyAuthorizer()
    authorizer.add_user(USER, PASSWORD, folder, perm="elradfmwMT")
    handler = type("Handler", (FTPHandler,), {"authorizer": authorizer, "auth_failed_timeout": 0})
    server = FTPServer(("127.0.0.1", 0), handler)
    threading.Thread(target=server.serve_forever, kwargs={"timeout": 0.5}, daemon=True).start()
    announce(server.address[1])
    wait_for_stop()
    server.close_all()


# GNU inetutils ftpd on [::1], one process per connection as inetd starts it,
# logged in as a local user made for the run.  ftpd looks up its client's
# name; each session sees a private /etc/hosts naming ::1 so that it stays local.
FTPD_SESSION = ["unshare", "--mount", "--propagation", "private", "sh", "-c",
                'mount --bind "$0" /etc/hosts && exec /usr/sbin/ftpd']


def ftpd(folder):
    need("/usr/sbin/ftpd", "inetutils-ftpd")
    quiet = {"capture_output": True, "check": True}
    if os.geteuid() != 0 or subprocess.run(FTPD_SESSION[:4] + ["true"], capture_output=True).returncode != 0:
        missing("ftpd needs root for a local user and a private mount namespace")
    hosts = tempfile.NamedTemporaryFile("w", prefix="tarvo-hosts-")
    hosts.write(open("/etc/hosts").read() + "\n::1 localhost\n")
    hosts.flush()
    os.chmod(hosts.name, 0o644)
    user, password = f"tarvo{os.getpid()}", secrets.token_hex(8)
    subprocess.run(["useradd", "-M", "-d", folder, "-s", "/bin/sh", user], **quiet)
    subprocess.run(["chpasswd"], input=f"{user}:{password}\n".encode(), **quiet)
    os.chown(folder, pwd.getpwnam(user).pw_uid, pwd.getpwnam(user).pw_gid)
    listener = socket.create_server(("::1", 0), family=socket.AF_INET6)
    sessions, events = [], selectors.DefaultSelector()
    events.register(listener, selectors.EVENT_READ)
    events.register(sys.stdin, selectors.EVENT_READ)
    announce(listener.getsockname()[1], user, password)
    try:
        while True:
            ready = [key.fileobj for key, _ in events.select()]
            if sys.stdin in ready and not sys.stdin.buffer.read1(4096):
                break
            if listener in ready:
                connection, _ = listener.accept()
                sessions.append(subprocess.Popen(FTPD_SESSION + [hosts.name], stdin=connection,
                                                 stdout=connection, stderr=subprocess.DEVNULL))
                connection.close()
    finally:
        for session in sessions:
            session.kill()
            session.wait()
        subprocess.run(["userdel", user], capture_output=True)


# aiosmtpd with AUTH LOGIN.  Message N is saved in FOLDER/N: "message" raw,
# "envelope" (login, sender, recipients), and what Python's email package
# reads in it: "headers", "subject" (decoded), "types", "body", "attachment".
def smtp(folder):
    try:
        from aiosmtpd.smtp import SMTP, AuthResult, syntax
    except ImportError:
        missing("aiosmtpd is not installed (Debian package python3-aiosmtpd)")

    class CaseBlindAuth(SMTP):  # mechanism names are case-blind (RFC 4954)
        @syntax("AUTH <mechanism>")
        async def smtp_AUTH(self, arg):
            mechanism, space, rest = (arg or "").partition(" ")
            await super().smtp_AUTH(mechanism.upper() + space + rest)

    class Saver:
        count = 0

        async def handle_DATA(self, server, session, envelope):
            Saver.count += 1
            path = f"{folder}/{Saver.count}"
            os.makedirs(path)
            raw = envelope.original_content
            message = email.message_from_bytes(raw)
            login = session.auth_data.login.decode() if session.authenticated else ""
            subject = email.header.decode_header(message.get("Subject", ""))
            files = {"message": raw,
                     "envelope": "\n".join([login, envelope.mail_from, *envelope.rcpt_tos]),
                     "headers": "".join(f"{h}: {message.get(h)}\n" for h in ("From", "To", "Cc")),
                     "subject": str(email.header.make_header(subject)),
                     "types": " ".join(part.get_content_type() for part in message.walk())}
            for part in message.walk():
                if part.get_filename():
                    files["attachment"] = part.get_payload(decode=True)
                    files["attachment.name"] = part.get_filename()
                elif part.get_content_type() == "text/plain":
                    files["body"] = part.get_payload(decode=True)
            for name, data in files.items():
                write(f"{path}/{name}", data)
            return "250 Message accepted"

    def check(server, session, envelope, mechanism, auth):
        accepted = (auth.login, auth.password) == (USER.encode(), PASSWORD.encode())
        return AuthResult(success=accepted, handled=False, auth_data=auth)

    async def serve():
        loop = asyncio.get_running_loop()
        server = await loop.create_server(lambda: CaseBlindAuth(
            Saver(), hostname="peer.test", auth_require_tls=False, authenticator=check),
            "127.0.0.1", 0)
        announce(server.sockets[0].getsockname()[1])
        await loop.run_in_executor(None, wait_for_stop)

    import logging
    logging.getLogger("mail.log").setLevel(logging.ERROR)
    asyncio.run(serve())


if __name__ == "__main__":
    {"nginx": nginx, "pyftpdlib": pyftpdlib, "ftpd": ftpd, "smtp": smtp}[sys.argv[1]](sys.argv[2])
