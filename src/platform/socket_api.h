#pragma once
// The socket seam: the BSD socket calls that Winsock and POSIX share are used directly by the
// socket wrappers (src/sources/net/); everything that differs (handle type, closing, error
// numbers, time-out options, non-blocking mode, readiness polling, waking a poll from another
// thread) is declared here and implemented once per system in posix/ and win32/.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#endif

namespace vt::net {

#ifdef _WIN32
using SocketHandle = SOCKET;
inline const SocketHandle kInvalidSocket = INVALID_SOCKET;
inline constexpr int kSendFlags = 0;
// SO_REUSEADDR lets another socket take over a bound port on Windows.
inline constexpr bool kReuseAddressIsSafe = false;
#else
using SocketHandle = int;
inline constexpr SocketHandle kInvalidSocket = -1;
inline constexpr int kSendFlags = MSG_NOSIGNAL;  // a peer that went away must not kill us
// SO_REUSEADDR only allows binding over connections in TIME_WAIT.
inline constexpr bool kReuseAddressIsSafe = true;
#endif

// Socket error numbers as Winsock numbers them; on POSIX errno is mapped to these wherever
// the system logs, stores or tests one, so configurations behave alike on both systems.
enum SocketError : uint32_t {
    SOCKERR_INTR = 10004,
    SOCKERR_ACCES = 10013,
    SOCKERR_INVAL = 10022,
    SOCKERR_MFILE = 10024,
    SOCKERR_WOULDBLOCK = 10035,
    SOCKERR_INPROGRESS = 10036,
    SOCKERR_MSGSIZE = 10040,
    SOCKERR_ADDRINUSE = 10048,
    SOCKERR_ADDRNOTAVAIL = 10049,
    SOCKERR_NETUNREACH = 10051,
    SOCKERR_CONNABORTED = 10053,
    SOCKERR_CONNRESET = 10054,
    SOCKERR_NOBUFS = 10055,
    SOCKERR_NOTCONN = 10057,
    SOCKERR_TIMEDOUT = 10060,
    SOCKERR_CONNREFUSED = 10061,
    SOCKERR_HOSTUNREACH = 10065,
    SOCKERR_HOST_NOT_FOUND = 11001,  // the name does not resolve
};

// Starts the socket library once per process (WSAStartup; nothing on POSIX). Thread-safe.
bool socketStartup() noexcept;

// The calling thread's last socket error, in Winsock numbering.
uint32_t socketLastError() noexcept;
// Maps one errno value to its Winsock number; numbers without a counterpart pass unchanged.
uint32_t mapErrnoToSocketError(int errnoValue) noexcept;

int closeSocketHandle(SocketHandle s) noexcept;
bool setSocketNonBlocking(SocketHandle s, bool on) noexcept;
// Receive and send time-out in milliseconds (0 = wait for ever).
bool setSocketTimeouts(SocketHandle s, uint32_t milliseconds) noexcept;
// Closing returns at once and leaves unsent data to the system.
bool setSocketDontLinger(SocketHandle s) noexcept;
// Ends both directions: a receive blocked in another thread returns.
// Asks for a receive buffer of `bytes`; on Linux beyond the system maximum when the process
// may (root). Returns the size the system granted (0 when it cannot tell).
int setSocketReceiveBuffer(SocketHandle s, int bytes) noexcept;
int shutdownSocket(SocketHandle s) noexcept;
// True when the error of a non-blocking call only means "try again later".
bool isWouldBlock(uint32_t socketError) noexcept;

// Waits until one socket is readable (forWrite false) or writable (true), up to timeoutMs
// (0: only look). 1 ready, 0 not ready in time, -1 failure (socketLastError() tells why).
// Any descriptor number works (no select() limit on POSIX).
int waitSocketReady(SocketHandle s, bool forWrite, int timeoutMs) noexcept;
// The pending error of a socket (SO_ERROR) in Winsock numbering; 0 when there is none.
uint32_t socketPendingError(SocketHandle s) noexcept;

// Raises the soft limit of open descriptors to at least `wanted` (bounded by the hard limit);
// returns the limit now in force. Windows has no such limit and returns `wanted`.
size_t raiseOpenSocketLimit(size_t wanted) noexcept;

// Readiness of many sockets: epoll on Linux, WSAPoll on Windows. Level-triggered. One thread
// waits; wake() may be called from any thread and ends the current or next wait.
class CSocketPoller {
  public:
    struct Event {
        void* context = nullptr;  // nullptr: the poller was woken
        bool readable = false;
        bool failed = false;  // error or hang-up; a receive tells which
    };

    CSocketPoller();
    ~CSocketPoller();
    CSocketPoller(const CSocketPoller&) = delete;
    CSocketPoller& operator=(const CSocketPoller&) = delete;

    bool valid() const noexcept;
    bool add(SocketHandle s, void* context) noexcept;
    void remove(SocketHandle s) noexcept;
    // Waits up to timeoutMs (-1: no limit). Returns the number of events written to `out`,
    // 0 on time-out, -1 on failure (socketLastError() tells why).
    int wait(std::span<Event> out, int timeoutMs) noexcept;
    void wake() noexcept;

  private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace vt::net
