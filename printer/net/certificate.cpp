#include "printer/net/certificate.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/x509v3.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace vlm::printer {
namespace {

constexpr const char* kHost = "printer.velun.invalid";
constexpr long kDay = 24L * 60 * 60;

struct FreeKey {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
};

void Check(bool worked) {
    if (!worked) throw std::runtime_error("cannot make a certificate");
}

}  // namespace

TlsContext MakeTlsContext() {
    const std::unique_ptr<EVP_PKEY, FreeKey> key(EVP_EC_gen("P-256"));
    const std::unique_ptr<X509, FreeKey> certificate(X509_new());
    Check(key && certificate);
    X509* cert = certificate.get();

    X509_NAME* name = X509_get_subject_name(cert);
    const auto* host = reinterpret_cast<const unsigned char*>(kHost);
    Check(X509_set_version(cert, X509_VERSION_3) == 1);
    Check(ASN1_INTEGER_set(X509_get_serialNumber(cert), 1) == 1);
    Check(X509_gmtime_adj(X509_getm_notBefore(cert), -1000 * kDay) != nullptr);
    Check(X509_gmtime_adj(X509_getm_notAfter(cert), -100 * kDay) != nullptr);
    Check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, host, -1, -1, 0) == 1);
    Check(X509_set_issuer_name(cert, name) == 1 && X509_set_pubkey(cert, key.get()) == 1);
    const std::string other = std::string("DNS:") + kHost;
    const std::unique_ptr<X509_EXTENSION, FreeKey> names(
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, other.c_str()));
    Check(names && X509_add_ext(cert, names.get(), -1) == 1);
    Check(X509_sign(cert, key.get(), EVP_sha256()) > 0);

    TlsContext context(SSL_CTX_new(TLS_server_method()));
    Check(context && SSL_CTX_use_certificate(context.get(), cert) == 1 &&
          SSL_CTX_use_PrivateKey(context.get(), key.get()) == 1);
    SSL_CTX_set_mode(context.get(), SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    return context;
}

}  // namespace vlm::printer
