#include "platform/socket_api.h"

#include <algorithm>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace vt::net {

bool socketStartup() noexcept {
    static const bool started = [] {
        WSADATA data;
        return WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }();
    return started;
}

uint32_t mapErrnoToSocketError(int e) noexcept {
    return static_cast<uint32_t>(e);
}

uint32_t socketLastError() noexcept {
    return static_cast<uint32_t>(WSAGetLastError());
}

int closeSocketHandle(SocketHandle s) noexcept {
    return ::closesocket(s);
}

bool setSocketNonBlocking(SocketHandle s, bool on) noexcept {
    u_long mode = on ? 1 : 0;
    return ::ioctlsocket(s, FIONBIO, &mode) == 0;
}

bool setSocketTimeouts(SocketHandle s, uint32_t ms) noexcept {
    const DWORD value = ms;
    return ::setsockopt(s, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&value),
                        sizeof value) == 0 &&
           ::setsockopt(s, SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<const char*>(&value),
                        sizeof value) == 0;
}

bool setSocketDontLinger(SocketHandle s) noexcept {
    const BOOL on = TRUE;
    return ::setsockopt(s, SOL_SOCKET, SO_DONTLINGER, reinterpret_cast<const char*>(&on),
                        sizeof on) == 0;
}

int setSocketReceiveBuffer(SocketHandle s, int bytes) noexcept {
    ::setsockopt(s, SOL_SOCKET, SO_RCVBUF, reinterpret_cast<const char*>(&bytes), sizeof bytes);
    int granted = 0;
    int length = sizeof granted;
    if (::getsockopt(s, SOL_SOCKET, SO_RCVBUF, reinterpret_cast<char*>(&granted), &length) != 0)
        return 0;
    return granted;
}

int shutdownSocket(SocketHandle s) noexcept {
    return ::shutdown(s, SD_BOTH);
}

bool isWouldBlock(uint32_t e) noexcept {
    return e == SOCKERR_WOULDBLOCK || e == SOCKERR_INTR;
}

int waitSocketReady(SocketHandle s, bool forWrite, int timeoutMs) noexcept {
    // select() takes handles, not descriptor numbers, so it has no limit here; a failed
    // non-blocking connect shows in the exception set.
    fd_set ready;
    fd_set failed;
    FD_ZERO(&ready);
    FD_ZERO(&failed);
    FD_SET(s, &ready);
    FD_SET(s, &failed);
    timeval tv{};
    tv.tv_sec = timeoutMs / 1000;
    tv.tv_usec = (timeoutMs % 1000) * 1000;
    const int n = ::select(0, forWrite ? nullptr : &ready, forWrite ? &ready : nullptr, &failed,
                           timeoutMs < 0 ? nullptr : &tv);
    if (n == SOCKET_ERROR) return -1;
    return n > 0 ? 1 : 0;
}

uint32_t socketPendingError(SocketHandle s) noexcept {
    int error = 0;
    int length = sizeof error;
    if (::getsockopt(s, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &length) != 0)
        return socketLastError();
    return static_cast<uint32_t>(error);
}

size_t raiseOpenSocketLimit(size_t wanted) noexcept {
    return wanted;
}

// WSAPoll has no wake-up handle of its own, so a loopback datagram socket pair stands in:
// wake() sends one byte to the socket that is always part of the poll set.
struct CSocketPoller::Impl {
    std::mutex wakeLock;
    SOCKET wakeRecv = INVALID_SOCKET;
    SOCKET wakeSend = INVALID_SOCKET;
    std::vector<WSAPOLLFD> fds;  // fds[0] is the wake socket
    std::vector<void*> contexts;
    std::unordered_map<SOCKET, size_t> index;
};

CSocketPoller::CSocketPoller() : m_impl(std::make_unique<Impl>()) {
    socketStartup();
    Impl& d = *m_impl;
    d.wakeRecv = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    d.wakeSend = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (d.wakeRecv == INVALID_SOCKET || d.wakeSend == INVALID_SOCKET) return;
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int len = sizeof addr;
    if (::bind(d.wakeRecv, reinterpret_cast<sockaddr*>(&addr), len) != 0 ||
        ::getsockname(d.wakeRecv, reinterpret_cast<sockaddr*>(&addr), &len) != 0 ||
        ::connect(d.wakeSend, reinterpret_cast<sockaddr*>(&addr), len) != 0) {
        ::closesocket(d.wakeRecv);
        ::closesocket(d.wakeSend);
        d.wakeRecv = d.wakeSend = INVALID_SOCKET;
        return;
    }
    setSocketNonBlocking(d.wakeRecv, true);
    setSocketNonBlocking(d.wakeSend, true);
    d.fds.push_back(WSAPOLLFD{d.wakeRecv, POLLRDNORM, 0});
    d.contexts.push_back(nullptr);
}

CSocketPoller::~CSocketPoller() {
    if (m_impl->wakeRecv != INVALID_SOCKET) ::closesocket(m_impl->wakeRecv);
    if (m_impl->wakeSend != INVALID_SOCKET) ::closesocket(m_impl->wakeSend);
}

bool CSocketPoller::valid() const noexcept {
    return m_impl->wakeRecv != INVALID_SOCKET;
}

bool CSocketPoller::add(SocketHandle s, void* context) noexcept {
    Impl& d = *m_impl;
    if (d.index.count(s)) return false;
    d.index[s] = d.fds.size();
    d.fds.push_back(WSAPOLLFD{s, POLLRDNORM, 0});
    d.contexts.push_back(context);
    return true;
}

void CSocketPoller::remove(SocketHandle s) noexcept {
    Impl& d = *m_impl;
    auto it = d.index.find(s);
    if (it == d.index.end()) return;
    const size_t i = it->second;
    d.index.erase(it);
    const size_t last = d.fds.size() - 1;
    if (i != last) {
        d.fds[i] = d.fds[last];
        d.contexts[i] = d.contexts[last];
        d.index[d.fds[i].fd] = i;
    }
    d.fds.pop_back();
    d.contexts.pop_back();
}

int CSocketPoller::wait(std::span<Event> out, int timeoutMs) noexcept {
    Impl& d = *m_impl;
    int n = ::WSAPoll(d.fds.data(), static_cast<ULONG>(d.fds.size()), timeoutMs);
    if (n == SOCKET_ERROR) return -1;
    size_t written = 0;
    for (size_t i = 0; i < d.fds.size() && n > 0 && written < out.size(); ++i) {
        const SHORT r = d.fds[i].revents;
        if (r == 0) continue;
        --n;
        Event& e = out[written++];
        e.context = d.contexts[i];
        if (i == 0) {
            char drain[64];
            while (::recv(d.wakeRecv, drain, sizeof drain, 0) > 0) {
            }
            e.readable = e.failed = false;
            continue;
        }
        e.readable = (r & POLLRDNORM) != 0;
        e.failed = (r & (POLLERR | POLLHUP | POLLNVAL)) != 0;
    }
    return static_cast<int>(written);
}

void CSocketPoller::wake() noexcept {
    std::lock_guard lock(m_impl->wakeLock);
    const char one = 1;
    ::send(m_impl->wakeSend, &one, 1, 0);
}

}  // namespace vt::net
