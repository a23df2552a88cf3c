"""nginx on 127.0.0.1 with Basic authentication, for the HTTP suite.

Usage: nginx_peer.py FOLDER USER PASSWORD

Serves FOLDER/www: /cgi/notify needs USER and PASSWORD (htpasswd file),
anything else is open (and mostly missing).  Every request is logged to
FOLDER/access.log as "request line|Host|Authorization|status".  nginx gets
its listening socket from us, on a port the system picked, so it takes
connections from the moment it is announced.
"""
import base64
import hashlib
import http.client
import os
import signal
import socket
import subprocess
import sys

from peer_common import announce, missing, require_program, wait_for_stop

NGINX = "/usr/sbin/nginx"

CONFIG = """
daemon off;
pid {folder}/nginx.pid;
worker_processes 1;
events {{ worker_connections 64; }}
http {{
    log_format notify '$request|$http_host|$http_authorization|$status';
    access_log {folder}/access.log notify;
    client_body_temp_path {folder}/body;
    proxy_temp_path {folder}/proxy;
    fastcgi_temp_path {folder}/fastcgi;
    uwsgi_temp_path {folder}/uwsgi;
    scgi_temp_path {folder}/scgi;
    server {{
        listen 127.0.0.1:{port};
        root {folder}/www;
        location /cgi/ {{
            auth_basic "camera events";
            auth_basic_user_file {folder}/htpasswd;
        }}
    }}
}}
"""


def write(path, text):
    with open(path, "w") as out:
        out.write(text)


def main():
    folder, user, password = sys.argv[1:4]
    require_program(NGINX, "nginx")
    os.chmod(folder, 0o755)  # nginx workers may run as another user
    os.makedirs(f"{folder}/www/cgi", exist_ok=True)
    write(f"{folder}/www/cgi/notify", "ok\n")
    digest = base64.b64encode(hashlib.sha1(password.encode()).digest()).decode()
    write(f"{folder}/htpasswd", f"{user}:{{SHA}}{digest}\n")

    listener = socket.socket()
    listener.bind(("127.0.0.1", 0))
    listener.listen(64)
    port = listener.getsockname()[1]
    write(f"{folder}/nginx.conf", CONFIG.format(folder=folder, port=port))
    server = subprocess.Popen(
        [NGINX, "-p", folder, "-c", f"{folder}/nginx.conf", "-e", f"{folder}/error.log"],
        env=dict(os.environ, NGINX=f"{listener.fileno()};"),
        pass_fds=[listener.fileno()])
    listener.close()
    try:
        probe = http.client.HTTPConnection("127.0.0.1", port, timeout=30)
        probe.request("GET", "/probe")
        probe.getresponse().read()
        probe.close()
    except OSError as error:
        server.kill()
        server.wait()
        missing(f"nginx did not serve: {error}")
    announce(port=port)
    try:
        wait_for_stop()
    finally:
        server.send_signal(signal.SIGQUIT)  # graceful: logs are complete after it
        server.wait()


if __name__ == "__main__":
    main()
