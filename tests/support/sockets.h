#pragma once

// Sockets of the loopback interface for the servers of tests, and a pipe to wake these. No program
// that a test starts inherits any of them. Failures throw.

#include <string>
#include <string_view>

namespace pelmar::test {

// A socket at `address` (IPv4 or IPv6, as text) and `port`, 0 for one that the system picks. It is
// bound and not listening: connections are refused, and nobody else can take the port.
int boundSocket(const std::string& address, int port = 0);

// The same, listening.
int listeningSocket(const std::string& address);

int portOf(int socket);

// "127.0.0.1:80", "[::1]:80".
std::string authorityOf(const std::string& address, int port);

// A connection to `port` of 127.0.0.1; -1 when it is refused.
int connectionTo(int port);

// The next connection of a listening socket; -1 when there is none any more. A peer that is gone
// ends a write to it and not the process, provided that the calling thread does the writing.
int acceptedFrom(int listener);

// Stops without a word when the peer is gone.
void sendAll(int socket, std::string_view bytes);

void openPipe(int (&ends)[2]);

}  // namespace pelmar::test
