"""Simulates a phone on this computer and starts the helper next to it.

The phone is a real SMB server with a share NAS for the user nas on port 4445, a small https page,
and the DNS-SD announcements of both as "Quillbox Demo". Only this computer can see or reach them,
unless --network is given. Ctrl-C stops and removes all of it.
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
NOT_RUNNING = 3  # exit status of the helper's commands
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


class PageServer(http.server.ThreadingHTTPServer):
    def __init__(self, is_open):
        self.is_open = is_open
        super().__init__(("", 0), Page)

    def server_bind(self):
        if not self.is_open:
            # The page is announced on a loopback address of its own, not on 127.0.0.1.
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, b"lo")
        super().server_bind()


def serve_page(folder, is_open):
    """Serves the https page on a free port until this process ends; returns the port. Unless
    `is_open`, it only accepts connections on the loopback interface."""
    certificate = make_certificate(folder)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, certificate + ".key")
    server = PageServer(is_open)
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
    def __init__(self, build, dns_sd, is_open):
        self.build = build
        self.program = os.path.join(build, "quillbox-helper")
        self.dns_sd = dns_sd
        self.is_open = is_open  # to the local network
        self.ending = threading.Event()
        self.folder = tempfile.mkdtemp(prefix="quillbox-demo-")
        self.password = secrets.token_hex(4)
        self.processes = []
        self.told_port = None
        self.is_serving = False

    def start(self, *command, **more):
        # A new session, so that Ctrl-C in the terminal reaches only this script, which then ends the
        # processes in order. If this script is killed, the kernel sends them SIGTERM.
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
        self.log = open(os.path.join(self.folder, "log"), "w+b")
        page_port = serve_page(self.folder, self.is_open)
        phone = self.start(
            os.path.join(self.build, "quillbox-demo-phone"),
            *(NAME, str(port), str(page_port), self.dns_sd),
            "network" if self.is_open else "this-computer",
            stdout=subprocess.PIPE,
            stderr=self.log,
            text=True,
        )
        self.tell_reach(port, page_port)
        for line in phone.stdout:
            self.take(json.loads(line))
        self.log.seek(0)
        sys.stderr.buffer.write(self.log.read()[-4096:])
        sys.exit("demo: the announcements of the phone have ended")

    def tell_reach(self, port, page_port):
        print(f'The phone "{NAME}" runs on this computer, with its file server on port {port} and')
        print(f"its web page on port {page_port}.")
        if self.is_open:
            print("It and the helper's relay are open to the local network: every computer there can")
            print("see and reach them.")
        else:
            print("Only this computer can see and reach it and the helper's relay; ./dev demo --network")
            print("opens them to the local network.")
        print("Press Ctrl-C to end the demo.", flush=True)

    def take(self, event):
        """Handles an event that the phone has reported."""
        if "address" in event and not self.is_serving:
            self.is_serving = True
            self.start_file_server(event["address"])
            self.start_helper()
        elif event.get("relay"):
            # The same server may be found at several addresses, one after the other.
            if event["relay"]["port"] != self.told_port:
                self.explain(event["relay"])
            self.told_port = event["relay"]["port"]
        elif "relay" in event:
            self.told_port = None
            print("The helper's server for the phone is no longer announced.", flush=True)

    def start_file_server(self, address):
        """Starts smbd, which has to be told the phone's loopback address to listen there only."""
        share = os.path.join(self.folder, "share")
        os.mkdir(share)
        with open(os.path.join(share, "Hello.txt"), "w", encoding="utf-8") as file:
            file.write("Hello from the phone.\n")
        command, environment = smb_server.prepare(
            self.folder, share, self.password, only_on=None if self.is_open else address
        )
        self.start(*command, env=environment, stdout=self.log, stderr=self.log)

    def start_helper(self):
        # With its own settings: discovery may be switched off in the user's.
        environment = dict(os.environ, XDG_CONFIG_HOME=os.path.join(self.folder, "config"))
        options = ["--dns-sd=" + self.dns_sd]
        if not self.is_open:
            options.append("--this-computer-only")
        helper = self.start(self.program, *options, env=environment)
        threading.Thread(target=self.watch_helper, args=[helper], daemon=True).start()

    def watch_helper(self, helper):
        code = helper.wait()
        if self.ending.is_set():
            return
        if code != 0:
            print(f"demo: the helper has exited with status {code}.", flush=True)
        elif self.is_another_running():
            print("demo: Quillbox Helper was already running and stays in use, with its own options:")
            print(
                "unless it was started with --this-computer-only, its relay for the demo is open to "
                "the local network.",
                flush=True,
            )
        else:
            print("demo: the helper has exited.", flush=True)

    def is_another_running(self):
        done = subprocess.run([self.program, "status"], capture_output=True, check=False)
        return done.returncode != NOT_RUNNING

    def explain(self, relay):
        host, port = relay["host"], relay["port"]
        user = f"-U nas%{self.password}"
        print(f'\n"{NAME}" appears in the file manager. The same from another terminal:\n')
        print(f"  smbclient -L //{host} -p {port} {user}")
        print(f"  smbclient //{host}/NAS -p {port} {user} -c ls\n")
        print(f"In a file manager the user is nas, the password {self.password}.", flush=True)

    def end(self):
        self.ending.set()
        # The helper ends first, so that it withdraws its server while the phone still answers.
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
    parser.add_argument(
        "--network",
        action="store_true",
        help="open the share, the web page and their announcements to the local network",
    )
    options = parser.parse_args()
    demo = Demo(options.build, options.dns_sd, options.network)
    # Shells start background processes with SIGINT ignored; the demo must still end on Ctrl-C.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(0))
    try:
        demo.run()
    except KeyboardInterrupt:
        print()
    finally:
        # A second Ctrl-C must not interrupt the cleanup.
        signal.signal(signal.SIGINT, signal.SIG_IGN)
        demo.end()


if __name__ == "__main__":
    main()
