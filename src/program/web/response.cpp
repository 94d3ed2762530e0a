#include "web/response.h"

#define ZLIB_CONST  // what zlib reads it does not write
#include <zlib.h>

#include <new>

namespace corvane::program {

namespace {

// Everything the page needs comes from here, nothing inline, and no other page may hold it.
constexpr const char* CONTENT_SECURITY_POLICY =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

constexpr int GZIP_WINDOW = 15 + 16;  // zlib's largest window, in gzip's format
constexpr int GZIP_LEVEL = 1;         // an hour of figures in some milliseconds
constexpr int GZIP_MEMORY = 8;        // zlib's default

}  // namespace

ResponsePtr MakeResponse(const std::string& body, const char* type) {
    // The library copies and does not write.
    auto* const bytes = const_cast<char*>(body.data());  // NOLINT
    ResponsePtr response(MHD_create_response_from_buffer(body.size(), bytes, MHD_RESPMEM_MUST_COPY),
                         [](MHD_Response* made) {
                             if (made != nullptr) {
                                 MHD_destroy_response(made);
                             }
                         });
    if (response == nullptr) {
        throw std::bad_alloc();
    }
    AddHeader(response, MHD_HTTP_HEADER_CONTENT_TYPE, type);
    AddHeader(response, "Content-Security-Policy", CONTENT_SECURITY_POLICY);
    AddHeader(response, "X-Content-Type-Options", "nosniff");
    AddHeader(response, "X-Frame-Options", "DENY");
    AddHeader(response, "Referrer-Policy", "no-referrer");
    AddHeader(response, "Cross-Origin-Resource-Policy", "same-origin");
    return response;
}

void AddHeader(const ResponsePtr& response, const char* name, const std::string& value) {
    if (MHD_add_response_header(response.get(), name, value.c_str()) != MHD_YES) {
        throw std::bad_alloc();
    }
}

std::string Gzip(const std::string& text) {
    z_stream stream = {};
    if (deflateInit2(&stream, GZIP_LEVEL, Z_DEFLATED, GZIP_WINDOW, GZIP_MEMORY,
                     Z_DEFAULT_STRATEGY) != Z_OK) {
        throw std::bad_alloc();
    }
    const std::unique_ptr<z_stream, int (*)(z_stream*)> owner(&stream, deflateEnd);
    std::string packed(deflateBound(&stream, text.size()), '\0');
    stream.next_in = reinterpret_cast<const Bytef*>(text.data());
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    deflate(&stream, Z_FINISH);  // into all the room that it can need
    packed.resize(stream.total_out);
    return packed;
}

}  // namespace corvane::program
