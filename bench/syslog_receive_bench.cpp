// Receiving side of syslog: framing a TCP stream, splitting messages, and the whole TCP path
// on one loopback connection (socket reads, framing, delivery; no info units yet).
#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "base/net/tcp_framer.h"
#include "base/net/tcp_server.h"
#include "base/net/udp_server.h"
#include "platform/utf_codec.h"
#include "sources/syslog/syslog_splitter.h"

namespace {

const std::string kLine =
    "<13>Nov 22 02:36:14 webserver01 nginx[1234]: 10.0.0.1 - - \"GET /index.html HTTP/1.1\" 200\n";

std::string stream(size_t bytes) {
    std::string s;
    while (s.size() + kLine.size() <= bytes) s += kLine;
    return s;
}

struct CountingSink : vt::ITcpMessageSink {
    size_t count = 0;
    size_t bytes = 0;
    void onMessage(std::string_view m) override {
        ++count;
        bytes += m.size();
    }
};

void BM_TcpFramerLineFeed(benchmark::State& state) {
    const auto settings = vt::TcpFramingSettings::fromConfig(true, u"\\n", state.range(0) != 0);
    const std::string chunk = stream(262144);
    vt::CTcpFramer framer(settings);
    CountingSink sink;
    for (auto _ : state) framer.feed(chunk, sink);
    state.SetItemsProcessed(static_cast<int64_t>(sink.count));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * chunk.size()));
}
BENCHMARK(BM_TcpFramerLineFeed)->Arg(0)->Arg(1);

void BM_SplitSyslogMsg(benchmark::State& state) {
    const std::u16string text = vt::utf8ToUtf16(kLine);
    const vt::SyslogClock clock = vt::SyslogClock::now();
    for (auto _ : state) benchmark::DoNotOptimize(vt::splitSyslogMsg(text, true, clock));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_SplitSyslogMsg);

// Counts messages; with `split` it also does what OnReceive of the source will do before
// building a unit: widen the text and split it.
class CountingServer : public CTCPServer {
  public:
    CountingServer(TcpServerSettings settings, bool split)
        : CTCPServer(std::move(settings)), m_split(split) {}
    std::atomic<size_t> messages{0};

  protected:
    void OnReceive(const CTcpConnection&, std::string_view message) override {
        if (m_split) {
            vt::utf8ToUtf16(message, m_wide);
            benchmark::DoNotOptimize(vt::splitSyslogMsg(m_wide, true, m_clock));
        }
        messages.fetch_add(1, std::memory_order_relaxed);
    }

  private:
    bool m_split;
    std::u16string m_wide;
    vt::SyslogClock m_clock = vt::SyslogClock::now();
};

// One sender, one connection, messages of about 90 bytes framed by line feed.
void BM_TcpServerOneConnection(benchmark::State& state) {
    TcpServerSettings settings;
    settings.framing = vt::TcpFramingSettings::fromConfig(true, u"\\n", false);
    CountingServer server(settings, state.range(0) != 0);
    server.listen("127.0.0.1", 0);
    std::thread loop([&] { server.run(); });
    CIPAddress target;
    CIPAddress::fromText("127.0.0.1", server.localPort(), target);
    CWinSock client = CWinSock::create(AF_INET, SOCK_STREAM);
    if (!client.connect(target)) {
        state.SkipWithError("connect failed");
    } else {
        const std::string chunk = stream(1 << 20);
        const size_t perChunk = chunk.size() / kLine.size();
        const size_t chunks = 16;
        size_t expected = 0;
        for (auto _ : state) {
            for (size_t i = 0; i < chunks; ++i) client.sendAll(chunk);
            expected += chunks * perChunk;
            while (server.messages.load(std::memory_order_relaxed) < expected)
                std::this_thread::yield();
        }
        state.SetItemsProcessed(static_cast<int64_t>(expected));
        state.SetBytesProcessed(static_cast<int64_t>(expected * kLine.size()));
    }
    server.stop();
    loop.join();
}
BENCHMARK(BM_TcpServerOneConnection)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// Datagrams from one sender, one message each.
void BM_UdpServer(benchmark::State& state) {
    CUDPServer server;
    server.open("127.0.0.1", 0);
    CIPAddress target;
    CIPAddress::fromText("127.0.0.1", server.localPort(), target);
    CWinSock client = CWinSock::create(AF_INET, SOCK_DGRAM);
    const std::string line = kLine.substr(0, kLine.size() - 1);
    std::string message;
    CIPAddress sender;
    size_t received = 0;
    for (auto _ : state) {
        // Bursts small enough for the socket buffer, so that nothing is dropped.
        for (int i = 0; i < 64; ++i) client.sendTo(line.data(), int(line.size()), target);
        for (int i = 0; i < 64; ++i)
            if (server.receiveMessage(message, sender, 1000) == CUDPServer::Result::Message)
                ++received;
    }
    state.SetItemsProcessed(static_cast<int64_t>(received));
}
BENCHMARK(BM_UdpServer);

}  // namespace
