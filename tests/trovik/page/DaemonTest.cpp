#include "trovik/page/HttpDaemon.h"
#include "trovik/page/PageListening.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace trovik {
namespace {

/// A client that says what it is told to, and no more.
class Client {
public:
  explicit Client(unsigned port) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(socket_.Number(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    fcntl(socket_.Number(), F_SETFL, O_NONBLOCK);
  }
  void say(const std::string& text) {
    EXPECT_EQ(send(socket_.Number(), text.data(), text.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(text.size()));
  }
  /// Takes what has come.
  void hear() {
    char buffer[4096];
    ssize_t got = 0;
    while ((got = recv(socket_.Number(), buffer, sizeof buffer, 0)) > 0) {
      heard += std::string(buffer, static_cast<std::size_t>(got));
    }
    ended = ended || got == 0 || (got < 0 && errno != EAGAIN);
  }
  int descriptor() const { return socket_.Number(); }

  std::string heard;
  bool ended = false;

private:
  Descriptor socket_;
};

class HttpDaemonTest : public testing::Test, protected HttpHandler {
protected:
  std::optional<HttpResponse> refusal(const HttpRequest& request) override {
    return request.path == "/refused" ? std::optional(HttpResponse{403, "text/plain", "no\n", {}, nullptr, 0})
                                      : std::nullopt;
  }
  HttpAnswer answer(const HttpRequest& request, HttpExchange exchange) override {
    asked.push_back(request);
    HttpAnswer answer;
    answer.response.type = "text/plain";
    answer.response.body = request.path + (request.tooLong ? " too long" : "") + '\n';
    if (request.path == "/later") {
      answer.kind = HttpAnswer::Kind::Later;
      later = exchange;
    } else if (request.path == "/stream") {
      answer.kind = HttpAnswer::Kind::Stream;
    }
    return answer;
  }

  /// Serves until it is so, or for 20 seconds.
  template <typename Condition> void until(const std::vector<Client*>& clients, Condition isSo) {
    const Clock::time_point end = Clock::now() + std::chrono::seconds(20);
    while (!isSo()) {
      ASSERT_LT(Clock::now(), end) << "it did not come";
      std::vector<pollfd> descriptors = {{daemon.descriptor(), POLLIN, 0}};
      for (const Client* client : clients) {
        descriptors.push_back({client->ended ? -1 : client->descriptor(), POLLIN, 0});
      }
      poll(descriptors.data(), descriptors.size(), 50);
      daemon.advance(now());
      for (Client* client : clients) {
        client->hear();
      }
    }
  }
  /// Hears until the text has come.
  void expect(Client& client, const std::string& text) {
    until({&client}, [&] { return client.heard.find(text) != std::string::npos || client.ended; });
    EXPECT_NE(client.heard.find(text), std::string::npos) << client.heard;
  }
  Clock::time_point now() const { return Clock::now() + ahead; }

  PageSocket socket = listenForPages(std::nullopt, std::nullopt);
  unsigned port = socket.port;
  std::vector<HttpRequest> asked;
  HttpExchange later = 0;
  Duration ahead{};
  HttpLimits limits{.connections = 4, .ofOneAddress = 3, .unsent = 10'000};
  HttpDaemon daemon{std::move(socket.socket), *this, limits};
};

TEST_F(HttpDaemonTest, OneConnectionAsksOneThingAfterTheOther) {
  Client client(port);
  client.say("GET /one?a=%20 HTTP/1.1\r\nHost: here\r\nX-Two: 1\r\nX-Two: 2\r\n\r\n");
  expect(client, "/one\n");
  client.say("POST /two HTTP/1.1\r\nHost: here\r\nContent-Length: 5\r\n\r\nabcde");
  expect(client, "/two\n");
  ASSERT_EQ(asked.size(), 2U);
  EXPECT_EQ(asked[0].query.at("a"), "%20");
  EXPECT_EQ(asked[0].header("host"), "here");
  EXPECT_EQ(asked[0].count("x-two"), 2U);
  EXPECT_EQ(asked[1].body, "abcde");
  EXPECT_EQ(asked[1].method, "POST");
}

TEST_F(HttpDaemonTest, ARefusedRequestIsAnsweredBeforeItsBodyIsRead) {
  Client client(port);
  client.say("POST /refused HTTP/1.1\r\nHost: here\r\nContent-Length: 1000000000\r\n\r\nabc");
  expect(client, "403 Forbidden");
  EXPECT_TRUE(asked.empty());
}

TEST_F(HttpDaemonTest, ALongBodyIsForgotten) {
  Client client(port);
  client.say("POST /long HTTP/1.1\r\nHost: here\r\nContent-Length: 70000\r\n\r\n");
  const std::string half(35'000, 'x');
  client.say(half);
  until({&client}, [&] { return daemon.connections() == 1; });
  client.say(half);
  expect(client, "/long too long\n");
  EXPECT_EQ(asked.at(0).body, "");
}

TEST_F(HttpDaemonTest, LongHeadersAreRefused) {
  Client client(port);
  client.say("GET /a HTTP/1.1\r\nHost: here\r\nX-Long: " + std::string(40'000, 'x') + "\r\n\r\n");
  until({&client}, [&] { return client.ended; });
  EXPECT_NE(client.heard.find("HTTP/1.1 431"), std::string::npos) << client.heard;
  EXPECT_TRUE(asked.empty());
}

TEST_F(HttpDaemonTest, ARequestThatDoesNotComeToItsEndIsLeft) {
  for (const char* half : {"", "GET /ha", "GET /half HTTP/1.1\r\nHost: here\r\n",
                           "POST /half HTTP/1.1\r\nHost: here\r\nContent-Length: 9\r\n\r\nabc"}) {
    Client client(port);
    client.say(half);
    until({&client}, [&] { return daemon.connections() == 1; });
    ASSERT_TRUE(daemon.deadline());
    EXPECT_LE(*daemon.deadline(), now() + limits.request);
    ahead += limits.request + std::chrono::seconds(1);
    until({&client}, [&] { return client.ended && daemon.connections() == 0; });
  }
  EXPECT_TRUE(asked.empty());
}

TEST_F(HttpDaemonTest, OneWhoTricklesIsLeftAllTheSame) {
  Client client(port);
  client.say("GET /slow HTTP/1.1\r\n");
  until({&client}, [&] { return daemon.connections() == 1; });
  for (int i = 0; i < 12 && !client.ended; ++i) {
    ahead += std::chrono::seconds(1);
    const char letter = 'X';
    send(client.descriptor(), &letter, 1, MSG_NOSIGNAL);
    daemon.advance(now());
    client.hear();
  }
  until({&client}, [&] { return client.ended; });
  EXPECT_TRUE(asked.empty());
}

TEST_F(HttpDaemonTest, AnAnswerMayComeLater) {
  Client client(port);
  client.say("GET /later HTTP/1.1\r\nHost: here\r\n\r\n");
  until({&client}, [&] { return later != 0; });
  ahead += std::chrono::hours(1); // no time is too long for that
  daemon.advance(now());
  client.hear();
  EXPECT_FALSE(client.ended);
  EXPECT_FALSE(daemon.deadline().has_value());
  daemon.answer(later, {200, "text/plain", "at last\n", {}, nullptr, 0});
  expect(client, "at last\n");
  daemon.answer(later, {200, "text/plain", "twice\n", {}, nullptr, 0});
  daemon.answer(12345, {200, "text/plain", "whose?\n", {}, nullptr, 0});
  EXPECT_EQ(asked.size(), 1U);
}

TEST_F(HttpDaemonTest, AStreamGoesOnAsLongAsSomebodyListens) {
  Client first(port);
  Client second(port);
  for (Client* client : {&first, &second}) {
    client->say("GET /stream HTTP/1.1\r\nHost: here\r\n\r\n");
    expect(*client, "/stream\n");
  }
  EXPECT_EQ(daemon.streams(), 2U);
  ahead += std::chrono::hours(1);
  daemon.push("event one\n");
  expect(first, "event one\n");
  expect(second, "event one\n");
  daemon.push("event two\n");
  expect(first, "event two\n");
  shutdown(second.descriptor(), SHUT_RDWR);
  daemon.push("event three\n"); // which finds that nobody is there
  until({&first}, [&] {
    daemon.push("again\n");
    return daemon.streams() == 1;
  });
  expect(first, "event three\n");
}

TEST_F(HttpDaemonTest, AStreamWhoseClientTakesNothingIsLeft) {
  Client client(port);
  client.say("GET /stream HTTP/1.1\r\nHost: here\r\n\r\n");
  expect(client, "/stream\n");
  const std::string event(9'000, 'x');
  for (int i = 0; i < 10'000 && daemon.streams() > 0; ++i) {
    daemon.push(event);
    daemon.advance(now());
  }
  EXPECT_EQ(daemon.streams(), 0U);
}

TEST_F(HttpDaemonTest, OneAddressHasSoManyConnectionsAndNoMore) {
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < 3; ++i) {
    clients.push_back(std::make_unique<Client>(port));
  }
  until({}, [&] { return daemon.connections() == 3; });
  Client fourth(port);
  until({&fourth}, [&] { return fourth.ended; });
  EXPECT_EQ(daemon.connections(), 3U);
}

TEST_F(HttpDaemonTest, ItEndsWithAllThatIsOpen) {
  Client stream(port);
  stream.say("GET /stream HTTP/1.1\r\nHost: here\r\n\r\n");
  expect(stream, "/stream\n");
  Client waiting(port);
  waiting.say("GET /later HTTP/1.1\r\nHost: here\r\n\r\n");
  until({&waiting}, [&] { return later != 0; });
  Client half(port);
  half.say("GET /ha");
  until({&half}, [&] { return daemon.connections() == 3; });
}

} // namespace
} // namespace trovik
