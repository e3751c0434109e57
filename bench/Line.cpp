// A client of the line server, for bench/compare; account BENCH, user bench, password "bench pass".
//   bench_line rows PORT           pulls the file ITEMS, five columns, answering each batch at once; prints
//   seconds bench_line reads PORT COUNT    COUNT READ requests one after the other; prints requests a second
//   bench_line echo COUNT          the same bytes both ways through the server's socket code alone; the same
//   bench_line idle PORT COUNT PID COUNT sessions idle after their log-in; prints KiB resident each, of
//   process PID
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "host/LinePort.h"

namespace nvadmin::host {
namespace {

using Clock = std::chrono::steady_clock;

const std::string kRead =
    "READ\xFEITEMS\xFE"
    "777</TXB>\n";
constexpr std::string_view kFrameEnd = "</TXA>\r\n";

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

int Connect(std::uint16_t port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    throw std::runtime_error("can't connect");
  const int on = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return socket;
}

// The client's end of a connection.
class Client {
 public:
  explicit Client(std::uint16_t port) : socket_(Connect(port)) {}
  ~Client() { close(socket_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // Sends, and receives until the answer ends so.
  const std::string& Talk(std::string_view sent, std::string_view end) {
    if (write(socket_, sent.data(), sent.size()) != static_cast<ssize_t>(sent.size()))
      throw std::runtime_error("can't send");
    answer_.clear();
    while (!answer_.ends_with(end)) {
      char bytes[65'536];
      const ssize_t count = read(socket_, bytes, sizeof bytes);
      if (count <= 0) throw std::runtime_error("the server hung up after: " + answer_);
      answer_.append(bytes, static_cast<std::size_t>(count));
    }
    return answer_;
  }
  void LogIn() {
    Talk("", "login: ");
    Talk("bench\n", "password: ");
    Talk("bench pass\n", "account: ");
    Talk("BENCH\n", "\r\n:");
  }

 private:
  int socket_;
  std::string answer_;
};

void PullRows(std::uint16_t port) {
  Client client(port);
  client.LogIn();
  client.Talk("NV.BACKSRV\n", kFrameEnd);
  const auto start = Clock::now();
  client.Talk("ROWSET\xFEITEMS\xFESELECT ITEMS\xFELIST ITEMS NAME CITY DATE AMOUNT STATE</TXB>\n", kFrameEnd);
  while (client.Talk("GO\n", kFrameEnd) != "<TXA>ROWSET EXIT</TXA>\r\n") {
  }
  std::printf("%.4f\n", SecondsSince(start));
}

void PrintRate(Client& client, int count) {
  const auto start = Clock::now();
  for (int request = 0; request < count; ++request) client.Talk(kRead, kFrameEnd);
  std::printf("%.0f\n", count / SecondsSince(start));
}

void ReadOneAfterAnother(std::uint16_t port, int count) {
  Client client(port);
  client.LogIn();
  client.Talk("NV.BACKSRV\n", kFrameEnd);
  PrintRate(client, count);
}

// Serves one connection: each line is answered with a text as long as the item's frame.
void Echo(int count) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
  listen(listener, 1);
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
  std::thread server([listener] {
    LinePort port(std::make_unique<Connection>(accept(listener, nullptr, nullptr)), LineLimits());
    const std::string answer = "<TXA>" + std::string(90, 'x') + "</TXA>";
    std::string line;
    while (port.ReadLine(line, -1, true) == engine::InputResult::kLine) port.Write(answer, /*lineEnd=*/true);
  });
  {
    Client client(ntohs(address.sin_port));
    PrintRate(client, count);
  }
  server.join();
  close(listener);
}

long ResidentKib(const std::string& process) {
  std::ifstream status("/proc/" + process + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) return std::atol(line.c_str() + 6);
  }
  throw std::runtime_error("no process " + process);
}

void Idle(std::uint16_t port, int count, const std::string& process) {
  const long before = ResidentKib(process);
  std::vector<std::unique_ptr<Client>> clients;
  for (int number = 0; number < count; ++number) {
    clients.push_back(std::make_unique<Client>(port));
    clients.back()->LogIn();
  }
  std::printf("%ld\n", (ResidentKib(process) - before) / count);
}

int Run(const std::vector<std::string>& words) {
  const std::string what = words.empty() ? "" : words[0];
  const auto number = [&words](std::size_t at) { return std::atoi(words[at].c_str()); };
  if (what == "rows" && words.size() == 2) {
    PullRows(static_cast<std::uint16_t>(number(1)));
  } else if (what == "reads" && words.size() == 3) {
    ReadOneAfterAnother(static_cast<std::uint16_t>(number(1)), number(2));
  } else if (what == "echo" && words.size() == 2) {
    Echo(number(1));
  } else if (what == "idle" && words.size() == 4) {
    Idle(static_cast<std::uint16_t>(number(1)), number(2), words[3]);
  } else {
    std::fputs("usage: bench_line rows PORT | reads PORT COUNT | echo COUNT | idle PORT COUNT PID\n", stderr);
    return 2;
  }
  return 0;
}

}  // namespace
}  // namespace nvadmin::host

int main(int argc, char** argv) {
  try {
    return nvadmin::host::Run({argv + 1, argv + argc});
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "bench_line: %s\n", failure.what());
    return 1;
  }
}
