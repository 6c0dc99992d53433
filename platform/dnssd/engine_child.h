#pragma once

namespace quillbox::dnssd {

/// The option with which this executable is started as an engine process, as its only argument.
inline constexpr const char* kEngineChildOption = "--dns-sd-engine";

/// The descriptor on which an engine process finds its end of the socket pair.
inline constexpr int kEngineChildDescriptor = 3;

/// All that an engine process does: it answers the requests that come over the socket, by an mDNS
/// responder of its own (libavahi-core), until the socket's other end is closed; then it withdraws
/// what it published, with goodbyes, and returns the process's exit status.
///
/// It is a process because libavahi-core may abort on a packet from the network. To be called in a
/// process with one thread, before anything else: it changes how signals are treated, drops what
/// the process needs no more, and closes every other descriptor above standard error.
int runDnsSdEngineChild(int descriptor);

} // namespace quillbox::dnssd
