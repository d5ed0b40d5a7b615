#include "device/TcpSocket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vyx::device {
namespace {

bool setBlocking(int fd, bool blocking) {
    const int flags = fcntl(fd, F_GETFL, 0);
    if (flags < 0) return false;
    const int wanted = blocking ? (flags & ~O_NONBLOCK) : (flags | O_NONBLOCK);
    return fcntl(fd, F_SETFL, wanted) == 0;
}

}  // namespace

TcpSocket::~TcpSocket() { close(); }

bool TcpSocket::connect(const std::string& address, std::uint16_t port, int receiveTimeoutMs) {
    close();
    fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd_ < 0) return false;
    if (!setBlocking(fd_, false)) {
        close();
        return false;
    }

    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &peer.sin_addr) != 1) {
        close();
        return false;
    }

    int rc = ::connect(fd_, reinterpret_cast<const sockaddr*>(&peer), sizeof peer);
    while (rc != 0 && errno == EINPROGRESS) {
        // Wait for the connect to settle, then ask again: the second call
        // reports success as "already connected", which is printed like any
        // other failure below.
        pollfd p{fd_, POLLOUT, 0};
        ::poll(&p, 1, 1000);
        rc = ::connect(fd_, reinterpret_cast<const sockaddr*>(&peer), sizeof peer);
    }
    if (rc != 0) {
        std::fputs("connect error", stdout);
        std::fflush(stdout);
    }

    if (!setBlocking(fd_, true)) {
        close();
        return false;
    }
    timeval timeout{};
    timeout.tv_sec = receiveTimeoutMs / 1000;
    timeout.tv_usec = (receiveTimeoutMs % 1000) * 1000;
    if (setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0) {
        close();
        return false;
    }
    timeval readBack{};
    socklen_t length = sizeof readBack;
    getsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &readBack, &length);
    return true;
}

long TcpSocket::send(const std::uint8_t* data, std::size_t size) {
    if (fd_ < 0) return -1;
    return static_cast<long>(::send(fd_, data, size, MSG_NOSIGNAL));
}

long TcpSocket::receive(std::uint8_t* data, std::size_t size) {
    if (fd_ < 0) return -1;
    return static_cast<long>(::read(fd_, data, size));
}

void TcpSocket::shutdown() {
    if (fd_ >= 0) ::shutdown(fd_, SHUT_RDWR);
}

void TcpSocket::close() {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

}  // namespace vyx::device
