// Sends numbered syslog messages of a fixed size to one receiver on loopback, over TCP (line
// feed framed, spread over several connections) or UDP (paced at a given rate), and prints
// the wall-clock time of the first send in nanoseconds since 1970, so that a script can
// measure end to end up to the last line the receiver writes.
//
//   syslog_load_generator tcp|udp PORT COUNT SIZE [CONNECTIONS|RATE]
//
// GEN_FORMAT=5424 sends RFC 5424 headers, octet-counted over TCP; GEN_TLS=1 makes every TCP
// connection a TLS session (the receiver's certificate is not checked: this is a load).
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

bool rfc5424() {
    const char* format = std::getenv("GEN_FORMAT");
    return format && std::string(format) == "5424";
}

// "<13>Nov 22 10:00:00 benchhost app: 00000042 xxxx..." (or with an RFC 5424 header) of
// exactly `size` bytes, without its TCP framing.
std::string message(size_t number, size_t size) {
    char head[96];
    std::snprintf(head, sizeof head,
                  rfc5424() ? "<13>1 2026-11-22T10:00:00Z benchhost app - - - %08zu "
                            : "<13>Nov 22 10:00:00 benchhost app: %08zu ",
                  number);
    std::string text(head);
    if (text.size() < size) text.append(size - text.size(), 'x');
    text.resize(size);
    return text;
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int64_t wallNanos() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

bool sendAll(int fd, const char* data, size_t length, SSL* tls) {
    while (length && tls) {
        const int sent = SSL_write(tls, data, static_cast<int>(std::min<size_t>(length, 16384)));
        if (sent <= 0) return false;
        data += sent;
        length -= static_cast<size_t>(sent);
    }
    while (length) {
        const ssize_t sent = ::send(fd, data, length, MSG_NOSIGNAL);
        if (sent <= 0) return false;
        data += sent;
        length -= static_cast<size_t>(sent);
    }
    return true;
}

int runTcp(int port, size_t count, size_t size, size_t connections) {
    const char* tlsSetting = std::getenv("GEN_TLS");
    SSL_CTX* context =
        tlsSetting && *tlsSetting == '1' ? SSL_CTX_new(TLS_client_method()) : nullptr;
    std::vector<int> sockets;
    std::vector<SSL*> sessions;
    for (size_t i = 0; i < connections; ++i) {
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        const sockaddr_in address = loopback(port);
        if (fd < 0 || ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address)) {
            std::perror("connect");
            return 1;
        }
        sockets.push_back(fd);
        SSL* session = context ? SSL_new(context) : nullptr;
        if (session && (SSL_set_fd(session, fd) != 1 || SSL_connect(session) != 1)) {
            std::fprintf(stderr, "TLS handshake failed\n");
            return 1;
        }
        sessions.push_back(session);
    }
    // Each connection gets every connections-th message, prepared up front so that the
    // generator measures the receiver, not itself.
    std::vector<std::string> streams(connections);
    const bool counted = rfc5424();
    for (size_t n = 0; n < count; ++n) {
        std::string& s = streams[n % connections];
        if (counted) s += std::to_string(size) + ' ';
        s += message(n, size);
        if (!counted) s += '\n';
    }
    const int64_t start = wallNanos();
    std::vector<std::thread> senders;
    bool failed = false;
    for (size_t i = 0; i < connections; ++i)
        senders.emplace_back([&, i] {
            if (!sendAll(sockets[i], streams[i].data(), streams[i].size(), sessions[i]))
                failed = true;
            if (sessions[i]) {
                // A close while the receiver still sends (its tickets, its closing alert)
                // would reset the connection and drop what it has not read yet: end our
                // side, then wait for the receiver's end.
                SSL_shutdown(sessions[i]);
                ::shutdown(sockets[i], SHUT_WR);
                char drain[4096];
                while (::recv(sockets[i], drain, sizeof drain, 0) > 0) {
                }
                SSL_free(sessions[i]);
            }
            ::close(sockets[i]);
        });
    for (std::thread& t : senders) t.join();
    if (context) SSL_CTX_free(context);
    std::printf("%lld\n", static_cast<long long>(start));
    return failed ? 1 : 0;
}

int runUdp(int port, size_t count, size_t size, size_t rate) {
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in address = loopback(port);
    if (fd < 0 || ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address)) {
        std::perror("connect");
        return 1;
    }
    std::vector<std::string> messages;
    messages.reserve(count);
    for (size_t n = 0; n < count; ++n) messages.push_back(message(n, size));
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    const int64_t start = wallNanos();
    // Paced in bursts of 1 ms worth of messages.
    const size_t burst = rate >= 1000 ? rate / 1000 : 1;
    for (size_t n = 0; n < count; ++n) {
        if (n % burst == 0) {
            const auto due = begin + std::chrono::nanoseconds(static_cast<int64_t>(
                                         n * 1000000000.0 / static_cast<double>(rate)));
            std::this_thread::sleep_until(due);
        }
        if (::send(fd, messages[n].data(), messages[n].size(), 0) < 0) {
            std::perror("send");
            return 1;
        }
    }
    ::close(fd);
    std::printf("%lld\n", static_cast<long long>(start));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        std::fprintf(stderr, "usage: %s tcp|udp PORT COUNT SIZE [CONNECTIONS|RATE]\n", argv[0]);
        return 2;
    }
    const std::string mode = argv[1];
    const int port = std::atoi(argv[2]);
    const size_t count = std::strtoull(argv[3], nullptr, 10);
    const size_t size = std::strtoull(argv[4], nullptr, 10);
    const size_t extra = argc > 5 ? std::strtoull(argv[5], nullptr, 10) : 0;
    if (mode == "tcp") return runTcp(port, count, size, extra ? extra : 1);
    if (mode == "udp") return runUdp(port, count, size, extra ? extra : 100000);
    std::fprintf(stderr, "unknown mode %s\n", mode.c_str());
    return 2;
}
