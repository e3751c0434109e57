// Stands between a client and a server on sockets of this machine: makes the way between them as long as a
// network's, counts what goes over it, or cuts the connection when the client sends a certain text.
//
// Each byte arrives half a round trip after it was sent, however many there are: so a question and its answer
// take one round trip, and so does a long answer, or several questions sent at once. An exchange is that:
// what the client sends until the server answers.
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace nvadmin {

class SocketProxy {
 public:
  enum class Cut {
    kBefore,  // the server never sees the text
    kBehind,  // it does, but its answer is lost
  };

  SocketProxy(std::string path, std::string target, std::chrono::microseconds roundTrip = {})
      : path_(std::move(path)), target_(std::move(target)), oneWay_(roundTrip / 2), listener_(Socket()) {
    const sockaddr_un address = Address(path_);
    isThere_ = bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
               listen(listener_, 64) == 0;
    acceptor_ = std::thread([this] { Accept(); });
  }
  ~SocketProxy() {
    isOver_ = true;
    shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    for (std::thread& thread : threads_) thread.join();
    close(listener_);
    unlink(path_.c_str());
  }
  SocketProxy(const SocketProxy&) = delete;
  SocketProxy& operator=(const SocketProxy&) = delete;

  bool IsThere() const { return isThere_; }
  // Cuts the connection over which this text comes next, once.
  void CutAt(std::string_view text, Cut cut) {
    const std::lock_guard guard(mutex_);
    cutText_ = text;
    cut_ = cut;
  }
  bool HasCut() {
    const std::lock_guard guard(mutex_);
    return cutText_.empty();
  }
  // Since it began, over all connections.
  std::int64_t Exchanges() const { return exchanges_; }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::size_t kMostOnTheWay = 64;  // pieces, before the sender has to wait

  // What goes one way: pieces that arrive when it is their time.
  struct Way {
    int from, to;
    std::deque<std::pair<Clock::time_point, std::string>> pieces = {};
  };

  static int Socket() { return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }
  static sockaddr_un Address(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return address;
  }

  void Accept() {
    for (int client; (client = accept(listener_, nullptr, nullptr)) >= 0 && !isOver_;)
      threads_.emplace_back([this, client] { Serve(client); });
  }

  void Serve(int client) {
    const int server = Socket();
    const sockaddr_un address = Address(target_);
    if (connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
      Way question{client, server}, answer{server, client};
      bool isAnswered = true;
      while (!isOver_ && Pass(question, answer, isAnswered)) {
      }
    }
    close(client);
    close(server);
  }

  // False: the connection is over. `isAnswered`: the last piece taken was the server's.
  bool Pass(Way& question, Way& answer, bool& isAnswered) {
    Wait(question, answer);
    for (Way* way : {&question, &answer}) {
      std::string piece;
      if (!Take(*way, piece)) return false;
      if (piece.empty()) continue;
      if (way == &question && isAnswered) ++exchanges_;
      isAnswered = way == &answer;
      Cut cut{};
      if (way == &question && IsToBeCut(piece, cut)) {
        if (cut == Cut::kBehind && Deliver(question, Clock::time_point::max()) && Send(answer.from, piece)) {
          pollfd end = {answer.from, POLLIN, 0};
          poll(&end, 1, 2000);  // the server has done it when it answers
        }
        return false;
      }
      way->pieces.emplace_back(Clock::now() + oneWay_, std::move(piece));
    }
    const Clock::time_point now = Clock::now();
    return Deliver(question, now) && Deliver(answer, now);
  }

  // Until something comes, or is to be delivered.
  static void Wait(const Way& question, const Way& answer) {
    pollfd ends[] = {{question.from, POLLIN, 0}, {answer.from, POLLIN, 0}};
    Clock::time_point until = Clock::now() + std::chrono::milliseconds(100);
    for (const Way* way : {&question, &answer}) {
      if (!way->pieces.empty()) until = std::min(until, way->pieces.front().first);
      if (way->pieces.size() >= kMostOnTheWay) ends[way == &answer].fd = -1;
    }
    const auto left = std::max<std::chrono::nanoseconds>(until - Clock::now(), {});
    const timespec time = {left / std::chrono::seconds(1), (left % std::chrono::seconds(1)).count()};
    ppoll(ends, 2, &time, nullptr);
  }

  // Reads what is there. False: the sender has hung up.
  static bool Take(const Way& way, std::string& piece) {
    if (way.pieces.size() >= kMostOnTheWay) return true;
    std::array<char, 65536> buffer;
    const ssize_t size = recv(way.from, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (size > 0) piece.assign(buffer.data(), static_cast<std::size_t>(size));
    return size > 0 || (size < 0 && errno == EAGAIN);
  }

  bool IsToBeCut(std::string_view piece, Cut& cut) {
    const std::lock_guard guard(mutex_);
    if (cutText_.empty() || piece.find(cutText_) == std::string_view::npos) return false;
    cutText_.clear();
    cut = cut_;
    return true;
  }

  static bool Deliver(Way& way, Clock::time_point now) {
    for (; !way.pieces.empty() && way.pieces.front().first <= now; way.pieces.pop_front()) {
      if (!Send(way.to, way.pieces.front().second)) return false;
    }
    return true;
  }

  static bool Send(int to, std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t sent = send(to, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
  }

  const std::string path_, target_;
  const std::chrono::nanoseconds oneWay_;
  int listener_;
  bool isThere_ = false;
  std::atomic<bool> isOver_ = false;
  std::atomic<std::int64_t> exchanges_ = 0;
  std::mutex mutex_;
  std::string cutText_;
  Cut cut_ = Cut::kBefore;
  std::vector<std::thread> threads_;  // the acceptor's
  std::thread acceptor_;
};

}  // namespace nvadmin
