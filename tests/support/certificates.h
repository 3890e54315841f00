#pragma once

// Certificates made while a test runs (OpenSSL), good ones and every kind of bad one.

#include <openssl/types.h>

#include <memory>
#include <string>

namespace pelmar::test {

struct Certificate {
  std::shared_ptr<X509> certificate{};
  std::shared_ptr<EVP_PKEY> key{};

  std::string pem() const;
};

// What a certificate says: for which name, and from when until when, in hours from now.
struct CertificateTerms {
  std::string host;
  int begin = -1;
  int end = 1;
};

class CertificateAuthority {
 public:
  CertificateAuthority();

  // What a client has to trust.
  std::string pem() const { return own_.pem(); }

  Certificate issue(const CertificateTerms& terms) const;

 private:
  Certificate own_;
};

Certificate selfSigned(const CertificateTerms& terms);

}  // namespace pelmar::test
