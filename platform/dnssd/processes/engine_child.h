#pragma once

namespace quillbox::dnssd {

/// The command line option that makes this executable an engine process; its only argument.
inline constexpr const char* kEngineChildOption = "--dns-sd-engine";

/// The file descriptor of the engine process's end of the socket pair.
inline constexpr int kEngineChildDescriptor = 3;

/// The main function of an engine process: serves requests from the socket with an mDNS responder
/// (libavahi-core) until the other end is closed; then withdraws what it published, with goodbyes,
/// and returns the exit status.
///
/// This is a process of its own because a packet from the network can make libavahi-core abort.
/// Must be called in a single-threaded process, before anything else: it changes signal handling
/// and gives up privileges that the process does not need.
int runDnsSdEngineChild(int descriptor);

} // namespace quillbox::dnssd
