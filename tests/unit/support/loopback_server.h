// A small HTTP server on 127.0.0.1 in a thread of the test's process. Its responses are scripted
// byte by byte, so that a test can also send invalid ones.
#pragma once

#include "core/windows.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <atomic>
#include <deque>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "core/format.h"

namespace ve::test {

enum class Ending {
  kClose,  ///< The connection is shut down in order.
  /// The connection is reset: data not received yet is lost. (Some clients report a normal end
  /// all the same.)
  kReset,
};

/// The bytes that the server sends for one request, and how it closes the connection.
struct Answer {
  std::string bytes;
  Ending ending = Ending::kClose;
};

/// A complete response with a Content-Length. `status` is "200 OK" or the like; `headers` are more
/// header lines, each with its line break.
[[nodiscard]] inline Answer Reply(std::string_view status, std::string_view body,
                                  std::string_view headers = "") {
  return {Format("HTTP/1.1 {}\r\nConnection: close\r\n{}", status, headers) +
          Format("Content-Length: {}\r\n\r\n{}", body.size(), body)};
}
[[nodiscard]] inline Answer Ok(std::string_view body) { return Reply("200 OK", body); }

struct Request {
  std::string path;
  std::string head;  ///< The request line and all headers, with the empty line.
};

/// Every connection serves one request and is closed. Paths without a script get a 404.
class LoopbackServer {
 public:
  LoopbackServer() {
    WSADATA data;
    EXPECT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int length = sizeof(address);
    EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), length), 0);
    EXPECT_EQ(listen(listener_, SOMAXCONN), 0);
    EXPECT_EQ(getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length), 0);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { Serve(); });
  }
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;
  ~LoopbackServer() {
    stopped_ = true;
    thread_.join();
    closesocket(listener_);
    WSACleanup();
  }

  /// Adds a response to the path's script. They are sent in order; the last one is repeated.
  void Script(const std::string& path, Answer answer) {
    const std::lock_guard lock(mutex_);
    scripts_[path].push_back(std::move(answer));
  }

  /// The URL of a path, which begins with "/".
  [[nodiscard]] std::wstring Url(std::string_view path) const {
    return Format(L"http://127.0.0.1:{}{}", port_, path);
  }

  /// The requests received until now, in order.
  [[nodiscard]] std::vector<Request> Requests() {
    const std::lock_guard lock(mutex_);
    return requests_;
  }
  [[nodiscard]] std::vector<std::string> RequestedPaths() {
    std::vector<std::string> paths;
    for (const Request& request : Requests()) paths.push_back(request.path);
    return paths;
  }

 private:
  static constexpr DWORD kTimeout = 120'000;  // Milliseconds; only a hang takes this long.

  void Serve() {
    while (!stopped_) {
      fd_set readable;
      FD_ZERO(&readable);
      FD_SET(listener_, &readable);
      timeval wait{0, 20'000};  // Microseconds between two looks at stopped_.
      if (select(0, &readable, nullptr, nullptr, &wait) != 1) continue;
      const SOCKET connection = accept(listener_, nullptr, nullptr);
      if (connection == INVALID_SOCKET) continue;
      ServeConnection(connection);
      closesocket(connection);
    }
  }

  void ServeConnection(SOCKET connection) {
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&kTimeout),
               sizeof(DWORD));
    setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<const char*>(&kTimeout),
               sizeof(DWORD));
    std::string head;
    while (!head.ends_with("\r\n\r\n")) {
      char byte = 0;
      if (recv(connection, &byte, 1, 0) != 1) return;
      head += byte;
    }
    const Answer answer = AnswerTo(head);
    for (std::string_view rest = answer.bytes; !rest.empty();) {
      const int sent = send(connection, rest.data(), static_cast<int>(rest.size()), 0);
      if (sent <= 0) return;
      rest.remove_prefix(static_cast<std::size_t>(sent));
    }
    if (answer.ending == Ending::kReset) {
      const linger atOnce{1, 0};
      setsockopt(connection, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&atOnce),
                 sizeof(atOnce));
    }
  }

  Answer AnswerTo(const std::string& head) {
    const std::size_t begin = head.find(' ') + 1;
    const std::string path = head.substr(begin, head.find(' ', begin) - begin);
    const std::lock_guard lock(mutex_);
    requests_.push_back({path, head});
    const auto script = scripts_.find(path);
    if (script == scripts_.end()) return Reply("404 Not Found", "no such file here");
    std::deque<Answer>& answers = script->second;
    Answer answer = answers.front();
    if (answers.size() > 1) answers.pop_front();
    return answer;
  }

  SOCKET listener_ = INVALID_SOCKET;
  int port_ = 0;
  std::atomic<bool> stopped_ = false;
  std::mutex mutex_;
  std::map<std::string, std::deque<Answer>> scripts_;
  std::vector<Request> requests_;
  std::thread thread_;
};

}  // namespace ve::test
