"""Peers of the network suites on loopback: peers.py FOLDER KIND [ARGUMENTS...] keeps its files
in FOLDER, prints "ready N" once it takes connections at port N ("missing <reason>" when it cannot
run here), and stops when its standard input closes.  Its user is "cam", password "secret"."""
import asyncio, contextlib, email.header, email.message, importlib.util, os, re, signal, socket
import subprocess, sys, threading

FOLDER, HERE, ANNOUNCE = sys.argv[1], os.path.dirname(__file__), os.fdopen(os.dup(1), "w")
os.dup2(os.open(os.devnull, os.O_WRONLY), 1)  # the servers' own output stays out of it


def serve(port):
    print(f"ready {port}", file=ANNOUNCE, flush=True)
    sys.stdin.buffer.read()


def require(ready, reason):
    if not ready:
        sys.exit(print(f"missing {reason}", file=ANNOUNCE, flush=True))


# nginx with Basic authentication on /cgi/, logging "request|Host|Authorization|status".
def nginx():
    require(os.access("/usr/sbin/nginx", os.X_OK), "/usr/sbin/nginx (Debian package nginx)")
    listener = socket.create_server(("127.0.0.1", 0))  # inherited by nginx
    port = listener.getsockname()[1]
    open(f"{FOLDER}/nginx.conf", "w").write(open(f"{HERE}/nginx.conf").read().format(FOLDER, port))
    open(f"{FOLDER}/htpasswd", "w").write("cam:{PLAIN}secret\n")
    server = subprocess.Popen(["/usr/sbin/nginx", "-p", FOLDER, "-c", f"{FOLDER}/nginx.conf", "-e",
                               f"{FOLDER}/error.log"], pass_fds=[listener.fileno()],
                              env=dict(os.environ, NGINX=f"{listener.fileno()};"))
    serve(port)
    server.send_signal(signal.SIGQUIT)  # graceful: the log is complete after it
    server.wait()


# pyftpdlib on 127.0.0.1, or GNU inetutils ftpd on [::1], one process per
# connection as inetd starts it, in a mount namespace where /etc names ::1
# and knows the user.
def ftp(server):
    if server == "pyftpdlib":
        require(importlib.util.find_spec("pyftpdlib"), "pyftpdlib (package python3-pyftpdlib)")
        from pyftpdlib import authorizers, handlers, servers
        handlers.FTPHandler.authorizer = authorizers.DummyAuthorizer()
        handlers.FTPHandler.authorizer.add_user("cam", "secret", FOLDER, perm="elradfmwMT")
        handlers.FTPHandler.auth_failed_timeout = 0  # the suite tries a wrong password
        listener = servers.FTPServer(("127.0.0.1", 0), handlers.FTPHandler)
        threading.Thread(target=listener.serve_forever, daemon=True).start()
        return serve(listener.address[1])
    require(os.access("/usr/sbin/ftpd", os.X_OK) and os.geteuid() == 0,
            "/usr/sbin/ftpd (Debian package inetutils-ftpd) and root to start it")
    session = ["unshare", "--mount", "--propagation", "private", "sh", "-c", "for f in hosts "
               'passwd shadow; do mount --bind "$0/$f" /etc/$f || exit; done; exec /usr/sbin/ftpd']
    os.makedirs(f"{FOLDER}/etc")
    open(f"{FOLDER}/etc/hosts", "w").write("::1 localhost\n")
    open(f"{FOLDER}/etc/passwd", "w").write(f"cam:x:0:0::{FOLDER}:/bin/sh\n")
    open(f"{FOLDER}/etc/shadow", "w").write("cam:$6$tarvo$xOebxA5x7hyJUixZcjEIG0p80UhRdhyNpGXKRS"
                                            "YC6wDnteL8qYJYPhb9eU/Cied/./N67xr8jZJ/eCmHKcaK4/"
                                            ":1:0:99999:7:::\n")  # password "secret"
    listener, sessions = socket.create_server(("::1", 0), family=socket.AF_INET6), []

    def accept():
        while connection := listener.accept()[0]:
            sessions.append(subprocess.Popen(session + [f"{FOLDER}/etc"], stdin=connection,
                                             stdout=connection, stderr=subprocess.DEVNULL))
            connection.close()

    threading.Thread(target=accept, daemon=True).start()
    serve(listener.getsockname()[1])
    for running in sessions:
        running.kill()


# One connection on HOST, answered from "REQUEST reply" ANSWERS (the reply from
# its first digit on; "" is the greeting) by the whole line, else by its first
# word.  FOLDER/heard lists the requests answered.
def script(host, *answers):
    answers = dict(re.fullmatch(r"(.*?) (\d.*)", answer, re.S).groups() for answer in answers)
    listener, heard = socket.create_server((host, 0), family=socket.getaddrinfo(host, 0)[0][0]), []

    def converse():
        with contextlib.suppress(OSError), listener.accept()[0] as connection:
            connection.sendall(answers[""].encode() + b"\r\n")
            for line in connection.makefile("rb"):
                line = line.decode().rstrip("\r\n")
                if line and (key := line if line in answers else line.split(" ")[0]) in answers:
                    heard.append(key)
                    connection.sendall(answers[key].encode() + b"\r\n")

    conversation = threading.Thread(target=converse)
    conversation.start()
    serve(listener.getsockname()[1])
    listener.shutdown(socket.SHUT_RDWR)  # ends the wait for a client that never came
    conversation.join()
    open(f"{FOLDER}/heard", "w").write(" ".join(heard))


# aiosmtpd with AUTH LOGIN (mechanism names case-blind, as RFC 4954 has them).
# FOLDER/N holds what Python's email package reads in message N: login,
# envelope, headers, subject, part types, text, attachment name, and the
# encoded words over 75 and base64 lines over 76 characters; N.jpg the attachment.
def smtp():
    require(importlib.util.find_spec("aiosmtpd"), "aiosmtpd (package python3-aiosmtpd)")
    from aiosmtpd.smtp import SMTP, AuthResult

    class Server(SMTP):
        async def smtp_AUTH(self, arg):
            mechanism, space, rest = (arg or "").partition(" ")
            await super().smtp_AUTH(mechanism.upper() + space + rest)

    class Saver:
        count = 0

        async def handle_DATA(self, server, session, envelope):
            Saver.count += 1
            message = email.message_from_bytes(envelope.original_content)
            parts, subject = list(message.walk()), message["Subject"]
            file = ([part for part in parts if part.get_filename()] or [email.message.Message()])[0]
            lines = re.findall(r"=\?.*?\?=", subject) + [line for part in parts[1:] if part[
                "Content-Transfer-Encoding"] == "base64" for line in part.get_payload().split()]
            seen = [session.auth_data.login.decode() if session.authenticated else "",
                    envelope.mail_from, *envelope.rcpt_tos,
                    *(f"{h}: {message[h]}" for h in ("From", "To", "Cc", "X-Mailer", "X-Status")),
                    str(email.header.make_header(email.header.decode_header(subject))),
                    " ".join(part.get_content_type() for part in parts),
                    parts[min(1, len(parts) - 1)].get_payload(decode=True).decode("latin-1"),
                    file.get_filename() or "",
                    f"too long: {[line for line in lines if len(line) > 75 + (line[0] != '=')]}"]
            open(f"{FOLDER}/{Saver.count}", "w", encoding="utf-8").write("\n".join(seen))
            open(f"{FOLDER}/{Saver.count}.jpg", "wb").write(file.get_payload(decode=True) or b"")
            return "250 Message accepted"

    def check(server, session, envelope, mechanism, auth):
        return AuthResult(success=(auth.login, auth.password) == (b"cam", b"secret"),
                          handled=False, auth_data=auth)

    async def run():
        server = await asyncio.get_running_loop().create_server(lambda: Server(
            Saver(), auth_require_tls=False, authenticator=check), "127.0.0.1", 0)
        await asyncio.to_thread(serve, server.sockets[0].getsockname()[1])

    asyncio.run(run())


if __name__ == "__main__":
    globals()[sys.argv[2]](*sys.argv[3:])
