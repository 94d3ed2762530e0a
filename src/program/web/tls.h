// The certificate and the key of a server that speaks TLS.
#pragma once

#include <string>

namespace corvane::program {

struct TlsFiles {
    std::string certificate;  ///< PEM: the server's certificate first, then its issuers
    std::string key;          ///< PEM, without a passphrase
};

/// Reads both and checks that they belong together. Throws std::runtime_error with the file and the
/// reason.
TlsFiles ReadTlsFiles(const std::string& certificate_path, const std::string& key_path);

}  // namespace corvane::program
