// The stand-in launcher: it starts the server on a free port, the server
// answers a PRELOGIN exchange over TCP, and the destructor stops it.
#include "support/mss_standin.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cstdint>
#include <netinet/in.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace qb::test {
namespace {

// A connected TCP socket, closed on destruction.
class tcp_socket {
 public:
  tcp_socket(const std::string& host, int port) : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
    if (fd_ < 0) throw std::runtime_error("socket failed");
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<std::uint16_t>(port));
    ::inet_pton(AF_INET, host.c_str(), &addr.sin_addr);
    connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
  }
  ~tcp_socket() { ::close(fd_); }
  tcp_socket(const tcp_socket&) = delete;
  tcp_socket& operator=(const tcp_socket&) = delete;

  [[nodiscard]] bool connected() const { return connected_; }

  void send_all(const std::vector<std::uint8_t>& data) const {
    std::size_t done = 0;
    while (done < data.size()) {
      const ssize_t n = ::send(fd_, data.data() + done, data.size() - done, 0);
      if (n <= 0) throw std::runtime_error("send failed");
      done += static_cast<std::size_t>(n);
    }
  }

  std::vector<std::uint8_t> receive(std::size_t count) const {
    std::vector<std::uint8_t> out(count);
    std::size_t done = 0;
    while (done < count) {
      const ssize_t n = ::recv(fd_, out.data() + done, count - done, 0);
      if (n <= 0) throw std::runtime_error("connection closed early");
      done += static_cast<std::size_t>(n);
    }
    return out;
  }

 private:
  int fd_;
  bool connected_ = false;
};

// PRELOGIN as FreeTDS sends it, reduced to VERSION and ENCRYPTION (off).
std::vector<std::uint8_t> prelogin_packet() {
  const std::vector<std::uint8_t> payload{
      0x00, 0x00, 0x0B, 0x00, 0x06,        // VERSION at 11, 6 bytes
      0x01, 0x00, 0x11, 0x00, 0x01,        // ENCRYPTION at 17, 1 byte
      0xFF,                                // terminator
      0x01, 0x03, 0x00, 0x11, 0x00, 0x00,  // client version
      0x00};                               // ENCRYPT_OFF
  const auto length = static_cast<std::uint16_t>(payload.size() + 8);
  std::vector<std::uint8_t> packet{0x12, 0x01, static_cast<std::uint8_t>(length >> 8),
                                   static_cast<std::uint8_t>(length & 0xFF), 0x00, 0x00, 0x01, 0x00};
  packet.insert(packet.end(), payload.begin(), payload.end());
  return packet;
}

struct prelogin_answer {
  std::uint8_t packet_type = 0;
  std::uint8_t status = 0;
  int encryption = -1;
  int major_version = -1;
};

prelogin_answer exchange_prelogin(const mss_standin& server) {
  tcp_socket sock(server.host(), server.port());
  if (!sock.connected()) throw std::runtime_error("cannot connect to the stand-in");
  sock.send_all(prelogin_packet());
  const auto header = sock.receive(8);
  const std::size_t length = (static_cast<std::size_t>(header[2]) << 8) | header[3];
  const auto body = sock.receive(length - 8);
  prelogin_answer answer;
  answer.packet_type = header[0];
  answer.status = header[1];
  for (std::size_t pos = 0; pos + 5 <= body.size() && body[pos] != 0xFF; pos += 5) {
    const std::size_t offset = (static_cast<std::size_t>(body[pos + 1]) << 8) | body[pos + 2];
    if (offset >= body.size()) break;
    if (body[pos] == 0x00) answer.major_version = body[offset];
    if (body[pos] == 0x01) answer.encryption = body[offset];
  }
  return answer;
}

TEST(MssStandin, ListensOnAFreePortAndAnswersPrelogin) {
  mss_standin server;
  EXPECT_EQ(server.host(), "127.0.0.1");
  EXPECT_GT(server.port(), 0);
  const prelogin_answer answer = exchange_prelogin(server);
  EXPECT_EQ(answer.packet_type, 0x04);  // tabular result
  EXPECT_EQ(answer.status & 0x01, 0x01);  // end of message
  EXPECT_EQ(answer.encryption, 0x02);   // encryption not supported
  EXPECT_EQ(answer.major_version, 15);  // SQL Server 2019 unless told otherwise
}

TEST(MssStandin, ReportsTheConfiguredRelease) {
  mss_standin_options options;
  options.version = "2005";
  mss_standin server(options);
  EXPECT_EQ(exchange_prelogin(server).major_version, 9);
}

TEST(MssStandin, ConnectionStringNamesFreeTdsPortAndLogin) {
  mss_standin server;
  EXPECT_EQ(server.connection_string(),
            "DRIVER={FreeTDS};SERVER=127.0.0.1;PORT=" + std::to_string(server.port()) +
                ";UID=sa;PWD=Secret#1;DATABASE=qbmini;TDS_Version=7.4;ClientCharset=UTF-8");
  EXPECT_EQ(server.connection_string("reader", "pw", "other"),
            "DRIVER={FreeTDS};SERVER=127.0.0.1;PORT=" + std::to_string(server.port()) +
                ";UID=reader;PWD=pw;DATABASE=other;TDS_Version=7.4;ClientCharset=UTF-8");
}

TEST(MssStandin, StopsCleanlyOnSigterm) {
  mss_standin server;
  const int port = server.port();
  EXPECT_EQ(server.stop(), 0);
  EXPECT_EQ(server.stop(), 0);  // a second stop reports the same status
  tcp_socket sock("127.0.0.1", port);
  EXPECT_FALSE(sock.connected());
}

TEST(MssStandin, BadFixtureFailsWithTheServersMessage) {
  mss_standin_options options;
  options.fixtures = {"no-such-fixture.json"};
  try {
    mss_standin server(options);
    FAIL() << "the stand-in started without its fixture";
  } catch (const std::runtime_error& e) {
    const std::string text = e.what();
    EXPECT_NE(text.find("exited with status 2"), std::string::npos) << text;
    EXPECT_NE(text.find("no-such-fixture.json"), std::string::npos) << text;
  }
}

}  // namespace
}  // namespace qb::test
