#include "simulator/control_socket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace ostrel_simulator {
namespace {

struct TemporaryDirectory {
  TemporaryDirectory() {
    std::string path = (std::filesystem::temp_directory_path() / "simulator-XXXXXX").string();
    directory = mkdtemp(path.data());
  }
  ~TemporaryDirectory() { std::filesystem::remove_all(directory); }

  std::string File(const std::string& name) const { return directory + "/" + name; }

  std::string directory;
};

struct Client {
  explicit Client(const std::string& path) : file(socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    isConnected = connect(file, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
  }
  ~Client() { close(file); }

  void Send(const std::string& text) const {
    EXPECT_EQ(send(file, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
  }

  // Up to the end of a line; what came before the other end closed, where it did.
  std::string ReadLine() const {
    std::string line;
    char byte = 0;
    while (recv(file, &byte, 1, 0) == 1 && byte != '\n') {
      line += byte;
    }
    return line;
  }

  int file;
  bool isConnected;
};

// Held for ever, as its server needs it.
Instrument& LastingInstrument() {
  static Instrument& instrument = *new Instrument(Settings{});
  return instrument;
}

TEST(ControlSocket, AnswersEachLineOfEachClient) {
  const TemporaryDirectory directory;
  const std::string path = directory.File("control");
  const int listener = OpenControlSocket(path);
  ASSERT_GE(listener, 0);
  ServeControlSocket(listener, LastingInstrument());
  const Client first(path);
  const Client second(path);
  ASSERT_TRUE(first.isConnected && second.isConnected);
  first.Send("focus 5\nfocus x\n");
  EXPECT_EQ(first.ReadLine(), "ok");
  EXPECT_EQ(first.ReadLine(), "error: these arguments are not understood");
  second.Send("sta");
  second.Send("tus\n");
  EXPECT_EQ(
      second.ReadLine(),
      "plugged 1 focus 5 moving 0 scanning 0 light 100 magnification 50 stage moving frame 0");
}

TEST(ControlSocket, GivesUpAClientThatEndsNoLine) {
  const TemporaryDirectory directory;
  const int listener = OpenControlSocket(directory.File("control"));
  ServeControlSocket(listener, LastingInstrument());
  const Client client(directory.File("control"));
  client.Send(std::string(2000, 'x'));
  EXPECT_EQ(client.ReadLine(), "");
}

TEST(ControlSocket, IsForItsUserAlone) {
  const TemporaryDirectory directory;
  const int listener = OpenControlSocket(directory.File("control"));
  struct stat status;
  ASSERT_EQ(stat(directory.File("control").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  close(listener);
}

TEST(ControlSocket, ReplacesOneThatWasLeftBehind) {
  const TemporaryDirectory directory;
  const std::string path = directory.File("control");
  close(OpenControlSocket(path));
  ASSERT_TRUE(std::filesystem::is_socket(path));
  const int listener = OpenControlSocket(path);
  EXPECT_GE(listener, 0);
  EXPECT_TRUE(Client(path).isConnected);
  close(listener);
}

TEST(ControlSocket, LeavesOthersAlone) {
  const TemporaryDirectory directory;
  const std::string path = directory.File("control");
  const int listener = OpenControlSocket(path);
  EXPECT_EQ(OpenControlSocket(path), -1);
  EXPECT_TRUE(Client(path).isConnected);
  close(listener);
  const std::string file = directory.File("file");
  std::ofstream(file) << "mine";
  EXPECT_EQ(OpenControlSocket(file), -1);
  EXPECT_TRUE(std::filesystem::is_regular_file(file));
  EXPECT_EQ(OpenControlSocket(directory.File("missing/control")), -1);
  EXPECT_EQ(OpenControlSocket("/tmp/" + std::string(200, 'x')), -1);
}

}  // namespace
}  // namespace ostrel_simulator
