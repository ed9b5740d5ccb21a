#include "simulator/control_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <exception>
#include <functional>
#include <system_error>
#include <thread>

#include "simulator/control.h"

namespace ostrel_simulator {

namespace {

constexpr std::size_t kLongestCommand = 1024;

int OpenSocket() {
  return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

bool IsInUse(const sockaddr_un& address) {
  const int probe = OpenSocket();
  const bool isAnswered =
      connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  close(probe);
  return isAnswered;
}

bool IsSocket(const char* path) {
  struct stat status;
  return lstat(path, &status) == 0 && S_ISSOCK(status.st_mode);
}

bool Bind(int listener, const sockaddr_un& address) {
  return bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

bool SendLine(int client, std::string line) {
  line += '\n';
  const char* rest = line.data();
  std::size_t left = line.size();
  while (left > 0) {
    const ssize_t sent = send(client, rest, left, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) {
      continue;
    }
    if (sent <= 0) {
      return false;
    }
    rest += sent;
    left -= static_cast<std::size_t>(sent);
  }
  return true;
}

// Runs the whole lines at the head of `pending` and takes them out of it.
bool AnswerLines(int client, Instrument& instrument, std::string* pending) {
  for (std::size_t end = pending->find('\n'); end != std::string::npos; end = pending->find('\n')) {
    const std::string answer = RunControlCommand(instrument, pending->substr(0, end));
    pending->erase(0, end + 1);
    if (!SendLine(client, answer)) {
      return false;
    }
  }
  return pending->size() <= kLongestCommand;
}

void AnswerClient(int client, Instrument& instrument) {
  std::string pending;
  std::array<char, 256> buffer;
  for (;;) {
    const ssize_t received = recv(client, buffer.data(), buffer.size(), 0);
    if (received < 0 && errno == EINTR) {
      continue;
    }
    if (received <= 0) {
      break;
    }
    pending.append(buffer.data(), static_cast<std::size_t>(received));
    if (!AnswerLines(client, instrument, &pending)) {
      break;
    }
  }
}

void ServeClient(int client, Instrument& instrument) {
  try {
    AnswerClient(client, instrument);
  } catch (const std::exception&) {
    // No memory: this client is lost, the instrument goes on.
  }
  close(client);
}

void AcceptClients(int listener, Instrument& instrument) {
  for (;;) {
    const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) {
      // Too many open files, or a client that has gone again.
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      continue;
    }
    try {
      std::thread(ServeClient, client, std::ref(instrument)).detach();
    } catch (const std::system_error&) {
      close(client);
    }
  }
}

}  // namespace

int OpenControlSocket(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    return -1;
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  const int listener = OpenSocket();
  if (listener < 0) {
    return -1;
  }
  // On a socket without a name yet, this gives the mode of the file that the name makes.
  fchmod(listener, S_IRUSR | S_IWUSR);
  bool isBound = Bind(listener, address);
  if (!isBound && errno == EADDRINUSE && IsSocket(path.c_str()) && !IsInUse(address)) {
    unlink(path.c_str());
    isBound = Bind(listener, address);
  }
  if (!isBound || listen(listener, 8) != 0) {
    close(listener);
    return -1;
  }
  return listener;
}

void ServeControlSocket(int listener, Instrument& instrument) {
  try {
    std::thread(AcceptClients, listener, std::ref(instrument)).detach();
  } catch (const std::system_error&) {
    close(listener);
  }
}

}  // namespace ostrel_simulator
