#include "tests/support/FakeAgent.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>

namespace test {

FakeAgent::FakeAgent(Answer answer)
    : answer_(std::move(answer)), socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path().copy(address.sun_path, sizeof address.sun_path - 1);
  auto const* generic = reinterpret_cast<sockaddr const*>(&address);
  if (bind(socket_, generic, sizeof address) != 0 || listen(socket_, 8) != 0) std::abort();
  thread_ = std::thread([this] { serve(); });
}

FakeAgent::~FakeAgent() {
  shutdown(socket_, SHUT_RDWR);  // ends accept()
  thread_.join();
  close(socket_);
}

std::vector<std::string> FakeAgent::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

void FakeAgent::serve() {
  for (int client; (client = accept(socket_, nullptr, nullptr)) >= 0; close(client)) converse(client);
}

void FakeAgent::converse(int client) {
  std::string request;
  for (char c; recv(client, &c, 1, 0) == 1 && c != '\n';) request += c;
  {
    std::lock_guard lock(mutex_);
    requests_.push_back(request);
  }
  std::string answer = answer_(request);
  for (std::size_t sent = 0; sent < answer.size();) {
    ssize_t count = send(client, answer.data() + sent, answer.size() - sent, MSG_NOSIGNAL);
    if (count < 0) return;
    sent += static_cast<std::size_t>(count);
  }
}

}  // namespace test
