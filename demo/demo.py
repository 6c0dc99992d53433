"""A phone simulated on this computer, and the helper beside it.

The phone is a real SMB server with a share NAS for the user nas on port 4445, a small https page,
and the announcements of both as "Quillbox Demo". Ctrl-C takes all of it away again.
"""

import argparse
import http.server
import json
import os
import secrets
import shutil
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import threading

import smb_server

NAME = "Quillbox Demo"
PAGE = b"""<!doctype html><meta charset="utf-8"><title>Quillbox Demo</title>
<h1>Quillbox Demo</h1><p>This is where a phone shows its web management.</p>
"""


class Page(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        self.send_response(200)
        self.send_header("Content-Type", "text/html; charset=utf-8")
        self.send_header("Content-Length", str(len(PAGE)))
        self.end_headers()
        self.wfile.write(PAGE)

    def log_message(self, *_):
        pass


def make_certificate(folder):
    certificate = os.path.join(folder, "page.pem")
    command = ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2"]
    command += ["-subj", "/CN=" + NAME, "-keyout", certificate + ".key", "-out", certificate]
    subprocess.run(command, check=True, capture_output=True)
    return certificate


def serve_page(folder):
    """Serves the https page on a free port, for as long as this process lives; gives the port."""
    certificate = make_certificate(folder)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, certificate + ".key")
    server = http.server.ThreadingHTTPServer(("", 0), Page)
    server.socket = context.wrap_socket(server.socket, server_side=True)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server.server_address[1]


def is_free(port):
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            probe.bind(("", port))
        except OSError:
            return False
        return True


class Demo:
    def __init__(self, build, dns_sd):
        self.build = build
        self.dns_sd = dns_sd
        self.folder = tempfile.mkdtemp(prefix="quillbox-demo-")
        self.password = secrets.token_hex(4)
        self.processes = []
        self.told_port = None

    def start(self, *command, **more):
        # Ctrl-C in the terminal is for this script alone, which then ends the others in order; were
        # it killed itself, the kernel would end them.
        command = ["setpriv", "--pdeathsig", "TERM", "--", *command]
        process = subprocess.Popen(
            command, stdin=subprocess.DEVNULL, start_new_session=True, **more
        )
        self.processes.append(process)
        return process

    def run(self):
        port = smb_server.PORT
        if not is_free(port):
            sys.exit(f"demo: port {port} is in use; the demo's file server needs it")
        share = os.path.join(self.folder, "share")
        os.mkdir(share)
        with open(os.path.join(share, "Hello.txt"), "w", encoding="utf-8") as file:
            file.write("Hello from the phone.\n")
        command, environment = smb_server.prepare(self.folder, share, self.password)
        self.log = open(os.path.join(self.folder, "log"), "w+b")
        self.start(*command, env=environment, stdout=self.log, stderr=self.log)
        page_port = serve_page(self.folder)
        phone = self.start(
            os.path.join(self.build, "quillbox-demo-phone"),
            *(NAME, str(port), str(page_port), self.dns_sd),
            stdout=subprocess.PIPE,
            stderr=self.log,
            text=True,
        )
        helper = self.start_helper()
        print(f'The phone "{NAME}" is on this computer; its web page is on port {page_port}.')
        print("Ctrl-C ends the demo.", flush=True)
        threading.Thread(target=self.watch_helper, args=[helper], daemon=True).start()
        self.follow(phone)

    def start_helper(self):
        # Settings of its own: those of the user may have discovery switched off.
        environment = dict(os.environ, XDG_CONFIG_HOME=os.path.join(self.folder, "config"))
        program = os.path.join(self.build, "quillbox-helper")
        return self.start(program, "--dns-sd=" + self.dns_sd, env=environment)

    def watch_helper(self, helper):
        code = helper.wait()
        if code == 0:
            print("demo: the helper has ended; a copy that ran before goes on.", flush=True)
        else:
            print(f"demo: the helper has ended with code {code}.", flush=True)

    def follow(self, phone):
        for line in phone.stdout:
            news = json.loads(line)
            if news.get("relay"):
                # The same server may be found at several addresses, one after the other.
                if news["relay"]["port"] != self.told_port:
                    self.explain(news["relay"])
                self.told_port = news["relay"]["port"]
            elif "relay" in news:
                self.told_port = None
                print("The phone's server has left the network.", flush=True)
        self.log.seek(0)
        sys.stderr.buffer.write(self.log.read()[-4096:])
        sys.exit("demo: the phone's announcements have ended")

    def explain(self, relay):
        host, port = relay["host"], relay["port"]
        user = f"-U nas%{self.password}"
        print(f'\n"{NAME}" appears in the file browser. The same from another terminal:\n')
        print(f"  smbclient -L //{host} -p {port} {user}")
        print(f"  smbclient //{host}/NAS -p {port} {user} -c ls\n")
        print(f"In a file browser the user is nas, the password {self.password}.", flush=True)

    def end(self):
        # The helper first, so that it withdraws its server while the phone still answers.
        for process in reversed(self.processes):
            process.terminate()
            try:
                process.wait(5)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        smb_server.end_helpers(self.folder)
        shutil.rmtree(self.folder, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser(prog="./dev demo", description=__doc__.split("\n", 1)[0])
    parser.add_argument("build", help=argparse.SUPPRESS)
    parser.add_argument("--dns-sd", choices=["auto", "daemon", "embedded"], default="auto")
    options = parser.parse_args()
    demo = Demo(options.build, options.dns_sd)
    # A shell that starts the demo in the background has it ignore Ctrl-C, which is its one way out.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    try:
        demo.run()
    except KeyboardInterrupt:
        print()
    finally:
        # A second Ctrl-C must not leave half of it behind.
        signal.signal(signal.SIGINT, signal.SIG_IGN)
        demo.end()


if __name__ == "__main__":
    main()
