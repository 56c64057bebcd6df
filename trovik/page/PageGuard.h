#pragma once

#include "trovik/page/Http.h"

#include <optional>
#include <string>
#include <string_view>

namespace trovik {

/// Who may ask what of the page: a browser is a program that runs what
/// strangers wrote, and any of their pages may send requests to this machine.
///
/// - The name that the browser believes to speak to (Host) is one of ours, so that
///   no stranger's name that leads here is read as his own page.
/// - Whoever asks has the token, by the cookie that the address gave.
/// - A request that says where it comes from (Origin, Sec-Fetch-Site) comes from the
///   page itself.
struct PageGuard {
  std::string token;
  std::string cookie;             ///< the name of the cookie
  std::vector<std::string> hosts; ///< the first is the one to be opened
  /// It listens for all addresses of the machine, so that every name that is
  /// an address counts as well: who leads a name of his own here has a name.
  bool anyAddress = false;
  unsigned port = 0;
  bool readOnly = false;
};

/// Why a request is not answered.
struct PageRefusal {
  int status = 403;
  std::string message;
  std::string hint;
};

/// Whether the request opens the page by its address with the token.
bool opensWithToken(const PageGuard& guard, const HttpRequest& request);

/// Nothing for a request that is to be answered. The one that opens the page
/// needs no cookie.
std::optional<PageRefusal> refusalOf(const PageGuard& guard, const HttpRequest& request);

/// "trovik-7780=TOKEN; HttpOnly; …".
std::string cookieOf(const PageGuard& guard);

/// Whether two texts are the same, in a time that does not tell how much of
/// them is.
bool isSameSecret(std::string_view one, std::string_view other);

/// The value of a cookie in the header "Cookie"; nothing where it is missing.
std::optional<std::string> cookieIn(const std::string& header, const std::string& name);

} // namespace trovik
