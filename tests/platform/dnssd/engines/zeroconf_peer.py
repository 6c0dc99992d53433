"""A DNS-SD peer for the tests, using python3-zeroconf. Prints events as lines to standard output.

zeroconf_peer.py ADDRESS watch TYPE
    "found NAME host=HOST port=PORT addresses=A,B txt=HEX" and "lost NAME"
zeroconf_peer.py ADDRESS publish NAME TYPE HOST PORT [SERVICE_ADDRESS]
    "published"; withdrawn when standard input ends. Does not probe for name conflicts.
"""
import socket
import sys
import threading

from zeroconf import ServiceInfo, ServiceListener, Zeroconf

address, command = sys.argv[1:3]
zeroconf = Zeroconf(interfaces=[address])
printing = threading.Lock()


def say(text):
    with printing:
        print(text, flush=True)


class Watcher(ServiceListener):
    def add_service(self, zc, type_, name):
        threading.Thread(target=self.describe, args=(type_, name), daemon=True).start()

    update_service = add_service

    def describe(self, type_, name):
        info = zeroconf.get_service_info(type_, name, timeout=3000)
        if info is None:
            say(f"unresolved {name}")
            return
        addresses = ",".join(sorted(info.parsed_addresses()))
        say(f"found {name} host={info.server} port={info.port} addresses={addresses} "
            f"txt={(info.text or b'').hex()}")

    def remove_service(self, zc, type_, name):
        say(f"lost {name}")


if command == "watch":
    zeroconf.add_service_listener(sys.argv[3] + ".local.", Watcher())
    say("watching")
    sys.stdin.read()
elif command == "publish":
    name, type_, host, port = sys.argv[3:7]
    published = sys.argv[7] if len(sys.argv) > 7 else address
    service = ServiceInfo(f"{type_}.local.", f"{name}.{type_}.local.", port=int(port),
                          server=f"{host}.", addresses=[socket.inet_aton(published)])
    zeroconf.register_service(service, cooperating_responders=True)
    say("published")
    sys.stdin.read()
zeroconf.close()
