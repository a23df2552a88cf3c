"""aiosmtpd on 127.0.0.1 with AUTH LOGIN, for the e-mail suite.

Usage: smtp_peer.py FOLDER USER PASSWORD

Logins need USER and PASSWORD (also without TLS); a client may send
without logging in.  AUTH mechanism names are matched without regard to
case, as RFC 4954 wants (aiosmtpd itself only knows them in upper case).

Every message is saved in FOLDER/N (N = 1, 2, ...) before the end of its
data is answered: "message" holds the raw bytes as they arrived,
"envelope" the login, the sender and the recipients, one per line.  What
Python's email package makes of the message is saved beside them:
"headers" (From, To and Cc as they stand), "subject" (decoded, in UTF-8),
"types" (the content type of every part), "body" (the decoded text part),
"attachment.name" and "attachment" (the decoded attachment).
"""
import asyncio
import email
import email.header
import logging
import os
import sys

from peer_common import announce, missing

try:
    from aiosmtpd.smtp import SMTP, AuthResult, syntax
except ImportError:
    missing("aiosmtpd is not installed (Debian package python3-aiosmtpd)")


class CaseBlindAuth(SMTP):
    @syntax("AUTH <mechanism>")
    async def smtp_AUTH(self, arg):
        mechanism, space, rest = (arg or "").partition(" ")
        await super().smtp_AUTH(mechanism.upper() + space + rest)


def write(path, data):
    with open(path, "wb") as out:
        out.write(data if isinstance(data, bytes) else data.encode())


def save_parts(raw, path):
    message = email.message_from_bytes(raw)
    write(os.path.join(path, "headers"),
          "".join(f"{name}: {message.get(name, '')}\n" for name in ("From", "To", "Cc")))
    subject = email.header.decode_header(message.get("Subject", ""))
    write(os.path.join(path, "subject"), str(email.header.make_header(subject)))
    write(os.path.join(path, "types"),
          "".join(part.get_content_type() + "\n" for part in message.walk()))
    for part in message.walk():
        if part.get_filename():
            write(os.path.join(path, "attachment.name"), part.get_filename())
            write(os.path.join(path, "attachment"), part.get_payload(decode=True))
        elif part.get_content_type() == "text/plain":
            write(os.path.join(path, "body"), part.get_payload(decode=True))


class Saver:
    def __init__(self, folder):
        self.folder = folder
        self.count = 0

    async def handle_DATA(self, server, session, envelope):
        self.count += 1
        path = os.path.join(self.folder, str(self.count))
        os.makedirs(path)
        write(os.path.join(path, "message"), envelope.original_content)
        login = session.auth_data.login.decode() if session.authenticated else ""
        write(os.path.join(path, "envelope"),
              "\n".join([login, envelope.mail_from, *envelope.rcpt_tos]) + "\n")
        save_parts(envelope.original_content, path)
        return "250 Message accepted"


def authenticator(user, password):
    def check(server, session, envelope, mechanism, auth_data):
        accepted = auth_data.login == user.encode() and auth_data.password == password.encode()
        return AuthResult(success=accepted, handled=False, auth_data=auth_data)
    return check


async def serve(folder, user, password):
    saver = Saver(folder)
    loop = asyncio.get_running_loop()
    server = await loop.create_server(
        lambda: CaseBlindAuth(saver, hostname="peer.test", auth_require_tls=False,
                     authenticator=authenticator(user, password)),
        "127.0.0.1", 0)
    stopped = asyncio.Event()

    def on_input():
        if not os.read(sys.stdin.fileno(), 4096):
            stopped.set()

    loop.add_reader(sys.stdin.fileno(), on_input)
    announce(port=server.sockets[0].getsockname()[1])
    await stopped.wait()
    server.close()
    await server.wait_closed()


def main():
    # aiosmtpd warns about its own deprecated login_data on every login.
    logging.getLogger("mail.log").setLevel(logging.ERROR)
    asyncio.run(serve(*sys.argv[1:4]))


if __name__ == "__main__":
    main()
