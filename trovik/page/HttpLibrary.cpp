#include "trovik/page/HttpLibrary.h"

#include "trovik/text/UsageError.h"

#include <dlfcn.h>
#include <string>

namespace trovik {
namespace {

/// The one whose header this was compiled with.
constexpr const char* soname = "libmicrohttpd.so.12";

template <typename Function> void find(void* library, const char* name, Function& function) {
  void* const symbol = dlsym(library, name);
  if (symbol == nullptr) {
    throw UsageError{std::string("the library ") + soname + " has no " + name,
                     "install the one of Debian's package libmicrohttpd12"};
  }
  function = reinterpret_cast<Function>(symbol);
}

HttpLibrary loaded() {
  void* const library = dlopen(soname, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    throw UsageError{std::string("the page needs the library ") + soname + ", which is not there",
                     "install it: on Debian the package libmicrohttpd12"};
  }
  HttpLibrary functions;
  find(library, "MHD_add_response_header", functions.addHeader);
  find(library, "MHD_create_response_from_buffer", functions.responseFromBuffer);
  find(library, "MHD_create_response_from_callback", functions.responseFromCallback);
  find(library, "MHD_create_response_from_fd64", functions.responseFromFile);
  find(library, "MHD_destroy_response", functions.destroyResponse);
  find(library, "MHD_get_connection_info", functions.connectionInfo);
  find(library, "MHD_get_connection_values", functions.connectionValues);
  find(library, "MHD_get_daemon_info", functions.daemonInfo);
  find(library, "MHD_get_timeout", functions.timeout);
  find(library, "MHD_queue_response", functions.queueResponse);
  find(library, "MHD_resume_connection", functions.resume);
  find(library, "MHD_run", functions.run);
  find(library, "MHD_start_daemon", functions.startDaemon);
  find(library, "MHD_stop_daemon", functions.stopDaemon);
  find(library, "MHD_suspend_connection", functions.suspend);
  return functions;
}

} // namespace

const HttpLibrary& httpLibrary() {
  static const HttpLibrary library = loaded();
  return library;
}

} // namespace trovik
