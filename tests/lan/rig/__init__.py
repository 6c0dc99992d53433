"""A local network of Linux network namespaces, with simulated phones, a computer and observers.

Nothing here touches the machine's own network: every host has its own network, mount and UTS
namespace, with a tmpfs on /run. A bridge in a separate namespace connects the hosts. A host's
namespaces exist as long as the process that holds them open.
"""
