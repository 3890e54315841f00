#include "tests/support/certificates.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace pelmar::test {
namespace {

constexpr const char* kAuthorityName = "Authority of the tests";

void check(bool isDone) {
  if (!isDone) throw std::runtime_error("OpenSSL cannot make a certificate");
}

void extend(X509* certificate, int kind, const std::string& value) {
  const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
      X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str()), &X509_EXTENSION_free);
  check(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
}

Certificate unsignedOne(const std::string& name, int begin, int end) {
  constexpr long kHour = 3600;
  static long serial = 0;
  Certificate made{.certificate{X509_new(), &X509_free}, .key{EVP_EC_gen("P-256"), &EVP_PKEY_free}};
  X509* certificate = made.certificate.get();
  check(X509_set_version(certificate, X509_VERSION_3) == 1);
  check(ASN1_INTEGER_set(X509_get_serialNumber(certificate), ++serial) == 1);
  check(X509_gmtime_adj(X509_getm_notBefore(certificate), begin * kHour) != nullptr);
  check(X509_gmtime_adj(X509_getm_notAfter(certificate), end * kHour) != nullptr);
  check(X509_set_pubkey(certificate, made.key.get()) == 1);
  const auto* text = reinterpret_cast<const unsigned char*>(name.c_str());
  check(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8, text,
                                   -1, -1, 0) == 1);
  return made;
}

void sign(const Certificate& made, const Certificate& by) {
  X509* certificate = made.certificate.get();
  check(X509_set_issuer_name(certificate, X509_get_subject_name(by.certificate.get())) == 1);
  check(X509_sign(certificate, by.key.get(), EVP_sha256()) != 0);
}

Certificate unsignedOne(const CertificateTerms& terms) {
  auto made = unsignedOne(terms.host, terms.begin, terms.end);
  extend(made.certificate.get(), NID_subject_alt_name, "DNS:" + terms.host);
  return made;
}

}  // namespace

std::string Certificate::pem() const {
  const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), &BIO_free);
  check(memory && PEM_write_bio_X509(memory.get(), certificate.get()) == 1);
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(memory.get(), &bytes);
  return {bytes, static_cast<std::size_t>(size)};
}

CertificateAuthority::CertificateAuthority() : own_(unsignedOne(kAuthorityName, -48, 48)) {
  extend(own_.certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
  extend(own_.certificate.get(), NID_key_usage, "critical,keyCertSign");
  sign(own_, own_);
}

Certificate CertificateAuthority::issue(const CertificateTerms& terms) const {
  auto made = unsignedOne(terms);
  sign(made, own_);
  return made;
}

Certificate selfSigned(const CertificateTerms& terms) {
  auto made = unsignedOne(terms);
  sign(made, made);
  return made;
}

}  // namespace pelmar::test
