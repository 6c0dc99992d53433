"""The subjects of the comparison: a direct connection, this program, and other common relays.

Each relay forwards one port to the load server on the phone, and another one to its file server if
there is one. All run as unprivileged users, with one thread or their default configuration.
"""

import os
import time

import costs
from rig.process import wait_until
from wire import LOAD_PORT

FILES_PORT = 4445
PHONES = {LOAD_PORT: "Quillbox Load", FILES_PORT: "Quillbox Files"}


class Relay:
    """A way from the client to the phone's ports. `place` is where it runs."""

    name = ""

    def __init__(self, place):
        self.place = place
        self.processes = []

    def start(self):
        """Starts it and waits until it accepts connections."""

    def address(self):
        return self.place.relay_address

    def port(self, upstream):
        """The relay's port for this port of the phone."""
        return self.FIRST_PORT + self.place.upstream_ports.index(upstream)

    def pids(self):
        return [process.pid for process in self.processes]

    def run(self, command):
        self.processes.append(self.place.host.start_as(self.name.lower(), command))

    def write(self, file_name, text):
        """Writes a file that the relay's user can read; returns its path."""
        self.place.host.user(self.name.lower())
        path = os.path.join(self.place.host.folder_of(self.name.lower()), file_name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return path

    def upstreams(self):
        """Pairs of the relay's port and the phone's port."""
        return [(self.port(upstream), upstream) for upstream in self.place.upstream_ports]

    def wait_listening(self):
        for port, _ in self.upstreams():
            wait_until(lambda: self.place.listens(port), 10, f"{self.name} on port {port}")

    def cpu_seconds(self):
        return costs.sum_over(self.pids(), costs.cpu_seconds)

    def own_kib(self):
        return costs.sum_over(self.pids(), costs.own_kib)

    def settle(self):
        """Waits until ended sessions no longer use processor time, for at most 10 s."""
        end = time.monotonic() + 10
        before, now = None, self.cpu_seconds()
        while before is None or (now - before > 0.001 and time.monotonic() < end):
            time.sleep(0.02)
            before, now = now, self.cpu_seconds()

    def stop(self):
        """Ends it if it is running."""
        for process in self.processes:
            process.end()
        self.processes = []


class Direct(Relay):
    name = "direct"

    def address(self):
        return self.place.upstream_address

    def port(self, upstream):
        return upstream


class Ours(Relay):
    """The program as a user starts it; its ports are found by DNS-SD, as a file browser does."""

    name = "ours"

    def __init__(self, place, as_root=False):
        super().__init__(place)
        self._ports = {}
        self._as_root = as_root
        self.helper = None

    def start(self):
        desk = self.place.host
        seen = self.place.mark()
        if self.place.phones:
            self.helper = desk.helper() if self._as_root else desk.helper_as(self.name)
        else:
            manual = {"host": self.place.upstream_address, "port": str(LOAD_PORT)}
            desk.write_settings_of(self.name, {"automaticDiscovery": False, **manual})
            self.helper = desk.helper_as(self.name)
        self.processes = [self.helper.process]
        for upstream, service in zip(self.place.upstream_ports, self._names()):
            self._ports[upstream] = self.place.wait_service(service, seen)["port"]

    def port(self, upstream):
        return self._ports[upstream]

    def stop(self):
        if not self.processes:
            return
        seen = self.place.mark()
        self.helper.stop()
        for name in self._names():
            self.place.wait_withdrawal(name, seen)
        super().stop()

    def _names(self):
        """The service names that it advertises."""
        return list(PHONES.values()) if self.place.phones else ["Quillbox"]


class HaProxy(Relay):
    name = "HAProxy"
    FIRST_PORT = 5001

    CONFIGURATION = """global
    nbthread 1
    maxconn 6000
defaults
    mode tcp
    option splice-auto
    timeout connect 10s
    timeout client 1h
    timeout server 1h
"""
    LISTENER = """listen port{port}
    bind :{port}
    server phone {address}:{upstream}
"""

    def start(self):
        listeners = [
            self.LISTENER.format(port=port, upstream=upstream, address=self.place.upstream_address)
            for port, upstream in self.upstreams()
        ]
        path = self.write("haproxy.cfg", self.CONFIGURATION + "".join(listeners))
        self.run(["haproxy", "-db", "-f", path])
        self.wait_listening()


# nginx uses this only when it runs as root. In the namespace of an unprivileged user it does, and
# must stay root, which is the only user there.
NGINX_USER = "root root"


class Nginx(Relay):
    name = "nginx"
    FIRST_PORT = 5011

    CONFIGURATION = """load_module /usr/lib/nginx/modules/ngx_stream_module.so;
daemon off;
worker_processes 1;
user {user};
error_log stderr crit;
pid {folder}/pid;
events {{
    worker_connections 16384;
}}
stream {{
    tcp_nodelay on;
    proxy_buffer_size {buffer};
    proxy_timeout 1h;
{servers}}}
"""
    SERVER = """    server {{
        listen {port} backlog=8192;
        proxy_pass {address}:{upstream};
    }}
"""
    BUFFER = "64k"

    def start(self):
        servers = [
            self.SERVER.format(port=port, upstream=upstream, address=self.place.upstream_address)
            for port, upstream in self.upstreams()
        ]
        folder = os.path.join(self.place.host.folder_of(self.name.lower()))
        path = self.write(
            "nginx.conf",
            self.CONFIGURATION.format(
                folder=folder, buffer=self.BUFFER, servers="".join(servers), user=NGINX_USER
            ),
        )
        self.run(["nginx", "-e", "stderr", "-p", folder, "-c", path])
        self.wait_listening()


class Socat(Relay):
    """socat forks a process for each session."""

    name = "socat"
    FIRST_PORT = 5021

    def start(self):
        for port, upstream in self.upstreams():
            listener = f"TCP4-LISTEN:{port},fork,reuseaddr,nodelay,backlog=8192"
            phone = f"TCP4:{self.place.upstream_address}:{upstream},nodelay"
            self.run(["socat", "-b", "1048576", listener, phone])
        self.wait_listening()

    def settle(self):
        end = time.monotonic() + 5
        parent_of = costs.parents()
        while any(parent in self.pids() for parent in parent_of.values()):
            if time.monotonic() > end:
                return
            time.sleep(0.02)
            parent_of = costs.parents()
        super().settle()


RELAYS = (Direct, Ours, HaProxy, Nginx, Socat)
