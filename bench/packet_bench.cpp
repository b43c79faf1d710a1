// Packets per second through PacketReader over a pty pair, each answered with one byte the way a
// call acknowledges a packet, and the CRC-16 throughput.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <string>
#include <thread>

#include "comm/pty_pair.h"
#include "comm/serial_connection.h"
#include "comm/serial_line.h"
#include "core/errors.h"
#include "core/stop_signal.h"
#include "zon/packet_reader.h"
#include "zon/protocol_char.h"
#include "zon/verifone_crc16.h"

namespace {

using namespace clockcomm;
using namespace std::chrono_literals;

void BM_PacketRoundTripOverPty(benchmark::State& state) {
  comm::PtyPair pty = comm::PtyPair::Open();
  comm::SerialLine line;
  line.SetSettings("9600,N,8,1");
  line.Open(pty.SlavePath());
  comm::SerialConnection conn(line);
  auto terminal = pty.TakeMaster();
  core::StopSignal stop;
  const std::string packet = "2,12,,,,,I,091020,1224,,,,1\r\n";

  // The terminal: send a packet, wait for the answer byte, send the next.
  std::thread far_end([&] {
    const comm::WakeSet wake{&stop};
    while (!stop.Requested()) {
      terminal->WriteText(packet);
      std::string answer;
      while (answer.empty()) {
        if (terminal->WaitForInput(comm::kNoDeadline, wake) != comm::WaitResult::kReadable) return;
        answer = terminal->Read();
      }
    }
  });

  zon::PacketReader reader(conn);
  reader.SetTimeout(5000);
  const std::string ack(1, zon::ProtocolChar::kAck);
  for (auto _ : state) {
    std::string got = reader.ReadPacket();
    benchmark::DoNotOptimize(got);
    conn.WriteText(ack);
  }
  stop.Request();
  far_end.join();
  state.SetItemsProcessed(state.iterations());
  state.counters["packets_per_s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_PacketRoundTripOverPty)->UseRealTime()->MinTime(2.0);

// A reader waiting out a 10 s time-out on a silent pty: the CPU column is what the wait cost.
void BM_IdleReaderTenSeconds(benchmark::State& state) {
  comm::PtyPair pty = comm::PtyPair::Open();
  comm::SerialLine line;
  line.Open(pty.SlavePath());
  comm::SerialConnection conn(line);
  zon::PacketReader reader(conn);
  reader.SetTimeout(10000);
  rusage before{}, after{};
  getrusage(RUSAGE_SELF, &before);
  for (auto _ : state) {
    try {
      reader.ReadPacket();
      state.SkipWithError("a silent line produced a packet");
    } catch (const core::TimeoutException&) {
    }
  }
  getrusage(RUSAGE_SELF, &after);
  auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec / 1e6; };
  state.counters["process_cpu_s"] = seconds(after.ru_utime) + seconds(after.ru_stime) -
                                    seconds(before.ru_utime) - seconds(before.ru_stime);
}
BENCHMARK(BM_IdleReaderTenSeconds)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_CalculateCrc16(benchmark::State& state) {
  zon::VerifoneCrc16 crc;
  std::string data(static_cast<size_t>(state.range(0)), '\0');
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 131 + 7);
  for (auto _ : state) benchmark::DoNotOptimize(crc.CalculateCrc16(data));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_CalculateCrc16)->Arg(32)->Arg(64 * 1024);

}  // namespace

BENCHMARK_MAIN();
