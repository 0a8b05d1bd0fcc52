// bench_loss COUNT RATE: the sender of bench/loss.bench.sh. Sends COUNT small UDP datagrams to a
// socket of its own bound on 127.0.0.1 (so the kernel answers nothing back), RATE per second
// (0: as fast as it can), and prints "sent N" and "seconds S". Loopback only, bounded in count.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
constexpr long kMaxCount = 10'000'000;
constexpr std::size_t kPayload = 64;
constexpr long kBatch = 64;

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: bench_loss COUNT RATE\n");
    return 2;
  }
  const long count = std::atol(argv[1]);
  const long rate = std::atol(argv[2]);
  if (count <= 0 || count > kMaxCount || rate < 0) {
    std::fprintf(stderr, "bench_loss: COUNT 1..%ld, RATE >= 0\n", kMaxCount);
    return 2;
  }
  const int receiver = socket(AF_INET, SOCK_DGRAM, 0);
  const int sender = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (receiver < 0 || sender < 0 || bind(receiver, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      getsockname(receiver, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
      connect(sender, reinterpret_cast<sockaddr*>(&address), length) != 0) {
    std::perror("bench_loss");
    return 1;
  }
  // Datagrams that are due go out together through sendmmsg, so the sender keeps its rate
  // on a busy machine; pacing is against the start, so the average rate holds exactly.
  char payload[kPayload] = {};
  iovec vector{payload, sizeof payload};
  mmsghdr messages[kBatch] = {};
  for (mmsghdr& message : messages) {
    message.msg_hdr.msg_iov = &vector;
    message.msg_hdr.msg_iovlen = 1;
  }
  const auto begun = Clock::now();
  long sent = 0;
  while (sent < count) {
    long due = count;
    if (rate > 0) {
      const auto elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - begun);
      due = std::min(count, elapsed.count() * rate / 1'000'000'000 + 1);
      if (due <= sent) {
        std::this_thread::sleep_for(std::chrono::microseconds(50));
        continue;
      }
    }
    const int batch = static_cast<int>(std::min<long>(due - sent, kBatch));
    const int done = sendmmsg(sender, messages, static_cast<unsigned>(batch), 0);
    if (done <= 0) break;
    sent += done;
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - begun).count();
  std::printf("sent %ld\nseconds %.3f\n", sent, seconds);
  close(sender);
  close(receiver);
  return 0;
}
