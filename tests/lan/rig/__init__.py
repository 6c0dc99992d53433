"""A local network of Linux network namespaces, with real phones, a computer and onlookers.

Nothing here touches the machine's own network: every host has a network, mount and UTS namespace
of its own, with a tmpfs over /run, and they meet on a bridge in a namespace that holds nothing
else. A host goes away with the process that holds it, and the network with its hosts.
"""
