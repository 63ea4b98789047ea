#include "platform/socket_api.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace vt::net {

bool socketStartup() noexcept {
    return true;
}

uint32_t mapErrnoToSocketError(int e) noexcept {
    switch (e) {
        case EAGAIN:
#if EWOULDBLOCK != EAGAIN
        case EWOULDBLOCK:
#endif
            // Only reported to callers after SO_RCVTIMEO expired or on non-blocking sockets;
            // the wrappers distinguish the two, see CWinSock::receive.
            return SOCKERR_WOULDBLOCK;
        case EINPROGRESS:
            return SOCKERR_INPROGRESS;
        case ETIMEDOUT:
            return SOCKERR_TIMEDOUT;
        case ECONNREFUSED:
            return SOCKERR_CONNREFUSED;
        case ECONNRESET:
            return SOCKERR_CONNRESET;
        case EPIPE:
            return SOCKERR_CONNRESET;
        case EADDRINUSE:
            return SOCKERR_ADDRINUSE;
        case EADDRNOTAVAIL:
            return SOCKERR_ADDRNOTAVAIL;
        case EHOSTUNREACH:
            return SOCKERR_HOSTUNREACH;
        case ENETUNREACH:
            return SOCKERR_NETUNREACH;
        case EACCES:
        case EPERM:
            return SOCKERR_ACCES;
        case EINTR:
            return SOCKERR_INTR;
        case EINVAL:
            return SOCKERR_INVAL;
        case EMFILE:
        case ENFILE:
            return SOCKERR_MFILE;
        case EMSGSIZE:
            return SOCKERR_MSGSIZE;
        case ECONNABORTED:
            return SOCKERR_CONNABORTED;
        case ENOBUFS:
        case ENOMEM:
            return SOCKERR_NOBUFS;
        case ENOTCONN:
            return SOCKERR_NOTCONN;
        default:
            return static_cast<uint32_t>(e);
    }
}

uint32_t socketLastError() noexcept {
    return mapErrnoToSocketError(errno);
}

int closeSocketHandle(SocketHandle s) noexcept {
    return ::close(s);
}

bool setSocketNonBlocking(SocketHandle s, bool on) noexcept {
    const int flags = ::fcntl(s, F_GETFL, 0);
    if (flags < 0) return false;
    return ::fcntl(s, F_SETFL, on ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK)) == 0;
}

bool setSocketTimeouts(SocketHandle s, uint32_t ms) noexcept {
    timeval tv{};
    tv.tv_sec = static_cast<time_t>(ms / 1000);
    tv.tv_usec = static_cast<suseconds_t>((ms % 1000) * 1000);
    return ::setsockopt(s, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv) == 0 &&
           ::setsockopt(s, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv) == 0;
}

bool setSocketDontLinger(SocketHandle s) noexcept {
    linger l{};
    l.l_onoff = 0;
    return ::setsockopt(s, SOL_SOCKET, SO_LINGER, &l, sizeof l) == 0;
}

int setSocketReceiveBuffer(SocketHandle s, int bytes) noexcept {
    if (::setsockopt(s, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0)
        ::setsockopt(s, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    int granted = 0;
    socklen_t length = sizeof granted;
    if (::getsockopt(s, SOL_SOCKET, SO_RCVBUF, &granted, &length) != 0) return 0;
    return granted;
}

int shutdownSocket(SocketHandle s) noexcept {
    return ::shutdown(s, SHUT_RDWR);
}

bool isWouldBlock(uint32_t e) noexcept {
    return e == SOCKERR_WOULDBLOCK || e == SOCKERR_INTR;
}

int waitSocketReady(SocketHandle s, bool forWrite, int timeoutMs) noexcept {
    pollfd entry{};
    entry.fd = s;
    entry.events = forWrite ? POLLOUT : POLLIN;
    for (;;) {
        const int n = ::poll(&entry, 1, timeoutMs);
        if (n >= 0) return n > 0 ? 1 : 0;
        if (errno != EINTR) return -1;
    }
}

uint32_t socketPendingError(SocketHandle s) noexcept {
    int error = 0;
    socklen_t length = sizeof error;
    if (::getsockopt(s, SOL_SOCKET, SO_ERROR, &error, &length) != 0) return socketLastError();
    return error == 0 ? 0 : mapErrnoToSocketError(error);
}

size_t raiseOpenSocketLimit(size_t wanted) noexcept {
    rlimit rl{};
    if (::getrlimit(RLIMIT_NOFILE, &rl) != 0) return 0;
    if (rl.rlim_cur >= wanted) return rl.rlim_cur;
    rlim_t target = static_cast<rlim_t>(wanted);
    if (rl.rlim_max != RLIM_INFINITY && target > rl.rlim_max) target = rl.rlim_max;
    rl.rlim_cur = target;
    if (::setrlimit(RLIMIT_NOFILE, &rl) != 0) {
        ::getrlimit(RLIMIT_NOFILE, &rl);
    }
    return rl.rlim_cur;
}

struct CSocketPoller::Impl {
    int epollFd = -1;
    int wakeFd = -1;
};

CSocketPoller::CSocketPoller() : m_impl(std::make_unique<Impl>()) {
    m_impl->epollFd = ::epoll_create1(EPOLL_CLOEXEC);
    m_impl->wakeFd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (m_impl->epollFd >= 0 && m_impl->wakeFd >= 0) {
        epoll_event ev{};
        ev.events = EPOLLIN;
        ev.data.ptr = nullptr;
        ::epoll_ctl(m_impl->epollFd, EPOLL_CTL_ADD, m_impl->wakeFd, &ev);
    }
}

CSocketPoller::~CSocketPoller() {
    if (m_impl->epollFd >= 0) ::close(m_impl->epollFd);
    if (m_impl->wakeFd >= 0) ::close(m_impl->wakeFd);
}

bool CSocketPoller::valid() const noexcept {
    return m_impl->epollFd >= 0 && m_impl->wakeFd >= 0;
}

bool CSocketPoller::add(SocketHandle s, void* context) noexcept {
    epoll_event ev{};
    ev.events = EPOLLIN | EPOLLRDHUP;
    ev.data.ptr = context;
    return ::epoll_ctl(m_impl->epollFd, EPOLL_CTL_ADD, s, &ev) == 0;
}

void CSocketPoller::remove(SocketHandle s) noexcept {
    ::epoll_ctl(m_impl->epollFd, EPOLL_CTL_DEL, s, nullptr);
}

int CSocketPoller::wait(std::span<Event> out, int timeoutMs) noexcept {
    epoll_event events[256];
    const int capacity = static_cast<int>(std::min<size_t>(out.size(), 256));
    int n;
    do {
        n = ::epoll_wait(m_impl->epollFd, events, capacity, timeoutMs);
    } while (n < 0 && errno == EINTR);
    if (n < 0) return -1;
    for (int i = 0; i < n; ++i) {
        Event& e = out[i];
        e.context = events[i].data.ptr;
        if (e.context == nullptr) {
            uint64_t drained;
            [[maybe_unused]] ssize_t r = ::read(m_impl->wakeFd, &drained, sizeof drained);
            e.readable = false;
            e.failed = false;
            continue;
        }
        e.readable = (events[i].events & (EPOLLIN | EPOLLRDHUP)) != 0;
        e.failed = (events[i].events & (EPOLLERR | EPOLLHUP)) != 0;
    }
    return n;
}

void CSocketPoller::wake() noexcept {
    const uint64_t one = 1;
    [[maybe_unused]] ssize_t r = ::write(m_impl->wakeFd, &one, sizeof one);
}

}  // namespace vt::net
