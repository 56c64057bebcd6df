#include "trovik/page/PageListening.h"

#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace trovik {
namespace {

constexpr unsigned portsTried = 100;
constexpr int backlog = 128;

/// An address of the system, of either family.
struct Address {
  sockaddr_storage bytes{};
  socklen_t size = 0;
  bool isAny = false;
  bool isLoopback = false;
  std::string text; ///< as it stands in the address of a page

  void setPort(unsigned port) {
    const auto number = htons(static_cast<std::uint16_t>(port));
    if (bytes.ss_family == AF_INET) {
      reinterpret_cast<sockaddr_in*>(&bytes)->sin_port = number;
    } else {
      reinterpret_cast<sockaddr_in6*>(&bytes)->sin6_port = number;
    }
  }
};

Address addressOf(const std::string& text) {
  Address address;
  auto* const four = reinterpret_cast<sockaddr_in*>(&address.bytes);
  auto* const six = reinterpret_cast<sockaddr_in6*>(&address.bytes);
  if (inet_pton(AF_INET, text.c_str(), &four->sin_addr) == 1) {
    address.bytes.ss_family = AF_INET;
    address.size = sizeof *four;
    address.isAny = four->sin_addr.s_addr == htonl(INADDR_ANY);
    address.isLoopback = (ntohl(four->sin_addr.s_addr) >> 24U) == 127;
    address.text = text;
    return address;
  }
  if (inet_pton(AF_INET6, text.c_str(), &six->sin6_addr) == 1) {
    address.bytes.ss_family = AF_INET6;
    address.size = sizeof *six;
    address.isAny = IN6_IS_ADDR_UNSPECIFIED(&six->sin6_addr) != 0;
    address.isLoopback = IN6_IS_ADDR_LOOPBACK(&six->sin6_addr) != 0;
    address.text = '[' + text + ']';
    return address;
  }
  throw UsageError{"--listen: " + inQuotes(text) + " is no address",
                   "write one in numbers, such as 192.168.1.20, or 0.0.0.0 for all of this machine"};
}

/// Listens there; the error of the system where that cannot be.
int listenAt(const Address& address, Descriptor& socket) {
  const int family = address.bytes.ss_family;
  socket.Reset(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  // So that a page that was ended can be started again at once.
  setsockopt(socket.Number(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (family == AF_INET6) {
    setsockopt(socket.Number(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
  }
  if (bind(socket.Number(), reinterpret_cast<const sockaddr*>(&address.bytes), address.size) != 0 ||
      listen(socket.Number(), backlog) != 0) {
    return errno;
  }
  return 0;
}

} // namespace

std::string nameOfMachine() {
  char name[256] = "";
  gethostname(name, sizeof name - 1);
  return name;
}

PageSocket listenForPages(const std::optional<std::string>& wanted, const std::optional<unsigned>& port) {
  Address address = addressOf(wanted.value_or("127.0.0.1"));
  PageSocket result;
  result.port = port.value_or(usualPagePort);
  const unsigned last = port ? *port : usualPagePort + portsTried - 1;
  int error = 0;
  for (;; ++result.port) {
    address.setPort(result.port);
    error = listenAt(address, result.socket);
    if (error != EADDRINUSE || result.port >= last) {
      break;
    }
  }
  if (error != 0) {
    const bool taken = error == EADDRINUSE;
    throw UsageError{"cannot listen at " + address.text + ':' + std::to_string(result.port) + ": " +
                         (taken ? "another program does" : std::system_category().message(error)),
                     taken ? (port ? "leave --port out for the next one that is free" : "name one: --port N")
                           : "look at --listen and --port"};
  }
  const std::string behind = ':' + std::to_string(result.port);
  result.anyAddress = address.isAny;
  result.onlyHere = address.isLoopback;
  if (!address.isAny) {
    result.hosts.push_back(address.text + behind);
  }
  if (address.isLoopback || address.isAny) {
    const bool four = address.bytes.ss_family == AF_INET;
    for (const std::string& host : {std::string(four ? "127.0.0.1" : "[::1]"), std::string("localhost")}) {
      if (result.hosts.empty() || result.hosts.front() != host + behind) {
        result.hosts.push_back(host + behind);
      }
    }
  }
  if (!address.isLoopback) {
    if (const std::string name = nameOfMachine(); !name.empty()) {
      result.hosts.push_back(name + behind);
    }
  }
  return result;
}

} // namespace trovik
