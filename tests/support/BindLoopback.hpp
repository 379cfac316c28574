// A TCP socket bound to 127.0.0.1 on a port the system picks. Until it listens it
// refuses connections and keeps the port from anyone else.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace bvgeo::testing {

// Binds `fd`; its port, or 0 when that fails.
inline int bindLoopback(int fd) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return 0;
    return ntohs(address.sin_port);
}

} // namespace bvgeo::testing
