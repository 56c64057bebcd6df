#pragma once

#include <microhttpd.h>

namespace trovik {

/// The functions of GNU libmicrohttpd that the page calls. The library is loaded
/// when a page is served: with those for TLS that it brings along, it would cost
/// each start of the program, and so each task of a cluster, a millisecond.
struct HttpLibrary {
  decltype(&MHD_add_response_header) addHeader = nullptr;
  decltype(&MHD_create_response_from_buffer) responseFromBuffer = nullptr;
  decltype(&MHD_create_response_from_callback) responseFromCallback = nullptr;
  decltype(&MHD_create_response_from_fd64) responseFromFile = nullptr;
  decltype(&MHD_destroy_response) destroyResponse = nullptr;
  decltype(&MHD_get_connection_info) connectionInfo = nullptr;
  decltype(&MHD_get_connection_values) connectionValues = nullptr;
  decltype(&MHD_get_daemon_info) daemonInfo = nullptr;
  decltype(&MHD_get_timeout) timeout = nullptr;
  decltype(&MHD_queue_response) queueResponse = nullptr;
  decltype(&MHD_resume_connection) resume = nullptr;
  decltype(&MHD_run) run = nullptr;
  decltype(&MHD_start_daemon) startDaemon = nullptr;
  decltype(&MHD_stop_daemon) stopDaemon = nullptr;
  decltype(&MHD_suspend_connection) suspend = nullptr;
};

/// Loads it with the first call; it stays until the program ends. Throws a
/// UsageError where it is not there.
const HttpLibrary& httpLibrary();

} // namespace trovik
