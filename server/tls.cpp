#include "server/tls.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <memory>

#include "util/os/regular_file.h"

namespace {

constexpr char kCertificateFile[] = "localhost-100y.cert";
constexpr char kKeyFile[] = "localhost-100y.key";

struct SslContextFree {
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};

/// The reason of OpenSSL's first error, and no error left.
std::string openssl_reason() {
  const char* reason = ERR_reason_error_string(ERR_get_error());
  ERR_clear_error();
  return reason != nullptr ? reason : "unknown reason";
}

}  // namespace

void use_tls(lws_context_creation_info& info) {
  info.options |= LWS_SERVER_OPTION_DO_SSL_GLOBAL_INIT;
  info.ssl_cert_filepath = kCertificateFile;
  info.ssl_private_key_filepath = kKeyFile;
  info.ssl_cipher_list = "ECDHE+AESGCM:ECDHE+CHACHA20";  // of TLS 1.2; those of 1.3 are all so
  info.ssl_options_set = static_cast<long>(SSL_OP_NO_TLSv1 | SSL_OP_NO_TLSv1_1);
}

std::string tls_fault() {
  for (const char* file : {kCertificateFile, kKeyFile}) {
    std::string reason;
    if (open_regular(file, O_RDONLY, reason).get() < 0)
      return std::string(file) + " can't be read in the working directory (" + reason +
             "); make the certificate and its key there";
  }
  const std::unique_ptr<SSL_CTX, SslContextFree> context(SSL_CTX_new(TLS_server_method()));
  if (!context) return "TLS is not available: " + openssl_reason();
  if (SSL_CTX_use_certificate_chain_file(context.get(), kCertificateFile) != 1)
    return std::string(kCertificateFile) + " holds no certificate that can be used (" +
           openssl_reason() + "); make it and its key anew";
  if (SSL_CTX_use_PrivateKey_file(context.get(), kKeyFile, SSL_FILETYPE_PEM) == 1) return {};
  const unsigned long error = ERR_peek_error();
  const std::string reason = openssl_reason();
  if (ERR_GET_REASON(error) == X509_R_KEY_VALUES_MISMATCH ||
      ERR_GET_REASON(error) == X509_R_KEY_TYPE_MISMATCH)
    return std::string(kKeyFile) + " is not the key of " + kCertificateFile +
           "; make both anew, or put the right one there";
  return std::string(kKeyFile) + " holds no key that can be used (" + reason +
         "); make it and its certificate anew";
}
