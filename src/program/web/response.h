// Responses of the web server, with the headers that all of them carry.
#pragma once

#include <microhttpd.h>

#include <memory>
#include <string>

namespace corvane::program {

/// Shared with the library while it sends; the library counts its users.
using ResponsePtr = std::shared_ptr<MHD_Response>;

/// A response with a copy of `body`. Throws std::bad_alloc.
ResponsePtr MakeResponse(const std::string& body, const char* type);

/// Adds a header. Throws std::bad_alloc.
void AddHeader(const ResponsePtr& response, const char* name, const std::string& value);

/// A text compressed in gzip's format. Throws std::bad_alloc.
std::string Gzip(const std::string& text);

}  // namespace corvane::program
