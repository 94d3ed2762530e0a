#include "web/tls.h"

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace corvane::program {

namespace {

std::string ReadText(const std::string& what, const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text;
    char part[4096];
    while (file.read(part, sizeof(part)) || file.gcount() > 0) {
        text.append(part, static_cast<size_t>(file.gcount()));
    }
    if (!file.eof()) {
        throw std::runtime_error("cannot read " + what + " " + path + ": " + std::strerror(errno));
    }
    return text;
}

gnutls_datum_t Datum(std::string& text) {
    return {reinterpret_cast<unsigned char*>(text.data()), static_cast<unsigned>(text.size())};
}

void Check(int status, const std::string& what) {
    if (status < 0) {
        throw std::runtime_error(what + ": " + gnutls_strerror(status));
    }
}

}  // namespace

TlsFiles ReadTlsFiles(const std::string& certificate_path, const std::string& key_path) {
    TlsFiles files{ReadText("the certificate", certificate_path), ReadText("the key", key_path)};
    const gnutls_datum_t certificate = Datum(files.certificate);
    const gnutls_datum_t key = Datum(files.key);

    gnutls_x509_crt_t* chain = nullptr;
    unsigned length = 0;
    Check(gnutls_x509_crt_list_import2(&chain, &length, &certificate, GNUTLS_X509_FMT_PEM, 0),
          "the certificate " + certificate_path);
    for (unsigned i = 0; i < length; ++i) {
        gnutls_x509_crt_deinit(chain[i]);
    }
    gnutls_free(chain);

    gnutls_x509_privkey_t parsed = nullptr;
    Check(gnutls_x509_privkey_init(&parsed), "TLS");
    const int status = gnutls_x509_privkey_import2(parsed, &key, GNUTLS_X509_FMT_PEM, nullptr, 0);
    gnutls_x509_privkey_deinit(parsed);
    Check(status, "the key " + key_path);

    gnutls_certificate_credentials_t both = nullptr;
    Check(gnutls_certificate_allocate_credentials(&both), "TLS");
    const int match =
        gnutls_certificate_set_x509_key_mem(both, &certificate, &key, GNUTLS_X509_FMT_PEM);
    gnutls_certificate_free_credentials(both);
    Check(match, "the key " + key_path + " and the certificate " + certificate_path);
    return files;
}

}  // namespace corvane::program
