#include "Zet/attrlog/TlsIdentity.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <cstdlib>

#include "Zet/Format.h"
#include "Zet/System.h"
#include "Zet/Trace.h"
#include "Zet/attrlog/TlsChannel.h"

namespace Zet {
namespace NboAttrLog {
namespace {

std::vector<String8> namesIn(String8 const& list) {
  std::vector<String8> names;
  std::string_view rest = list.view();
  while (!rest.empty()) {
    size_t comma = rest.find(',');
    std::string_view name = rest.substr(0, comma);
    while (!name.empty() && name.front() == ' ') name.remove_prefix(1);
    while (!name.empty() && name.back() == ' ') name.remove_suffix(1);
    if (!name.empty()) names.emplace_back(name);
    rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
  }
  return names;
}

double secondsFromEnvironment(char const* name, double byDefault) {
  String8 text = System::getenv(name);
  if (text.isEmpty()) return byDefault;
  char* end = nullptr;
  double seconds = std::strtod(text.charPtr(), &end);
  if (end != text.charPtr() + text.size() || !(seconds > 0) || seconds > 86400) {
    Trace::write("NboAttrLog", 0,
                 format("%s: '%s' is not a number of seconds; %g used", name, text.charPtr(), byDefault).view());
    return byDefault;
  }
  return seconds;
}

}  // namespace

TlsIdentity const& TlsIdentity::process() {
  static TlsIdentity const identity;
  return identity;
}

void TlsIdentity::ContextFree::operator()(ssl_ctx_st* context) const { SSL_CTX_free(context); }

TlsIdentity::TlsIdentity()
    : allowedNames_(namesIn(System::getenv("ZET_ATTRLOG_TLS_PEERS"))),
      handshakeSeconds_(secondsFromEnvironment("ZET_ATTRLOG_TLS_HANDSHAKE_SECONDS", 10)) {
  String8 cert = System::getenv("ZET_ATTRLOG_TLS_CERT"), key = System::getenv("ZET_ATTRLOG_TLS_KEY"),
          ca = System::getenv("ZET_ATTRLOG_TLS_CA");
  configured_ = !cert.isEmpty() || !key.isEmpty() || !ca.isEmpty();
  if (!configured_) return;
  if (cert.isEmpty() || key.isEmpty() || ca.isEmpty()) {
    problem_ = "TLS needs all of ZET_ATTRLOG_TLS_CERT, ZET_ATTRLOG_TLS_KEY and ZET_ATTRLOG_TLS_CA";
    return;
  }
  server_ = contextFor(true, cert, key, ca);
  if (problem_.isEmpty()) client_ = contextFor(false, cert, key, ca);
  if (!problem_.isEmpty()) server_.reset();
}

// A context for one end that speaks TLS 1.3 only and verifies the other
// end's certificate against the CA; a server also requires one.
TlsIdentity::Context TlsIdentity::contextFor(bool server, String8 const& cert, String8 const& key, String8 const& ca) {
  ERR_clear_error();
  Context context(SSL_CTX_new(server ? TLS_server_method() : TLS_client_method()));
  auto failed = [&](char const* what, String8 const& file) {
    problem_ = format("cannot use %s '%s': %s", what, file.charPtr(), TlsChannel::openSslError().charPtr());
    return Context();
  };
  if (!context) return failed("TLS", String8("library"));
  SSL_CTX_set_min_proto_version(context.get(), TLS1_3_VERSION);
  // Writes may be partial and come from a buffer that has moved since
  // (the stream's pending bytes grow); idle connections keep no buffers.
  SSL_CTX_set_mode(context.get(),
                   SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER | SSL_MODE_RELEASE_BUFFERS);
  // Records are read with what follows them, one recv for several, as a
  // plain connection reads frames.
  SSL_CTX_set_read_ahead(context.get(), 1);
  if (SSL_CTX_use_certificate_chain_file(context.get(), cert.charPtr()) != 1)
    return failed("the certificate of ZET_ATTRLOG_TLS_CERT", cert);
  if (SSL_CTX_use_PrivateKey_file(context.get(), key.charPtr(), SSL_FILETYPE_PEM) != 1)
    return failed("the key of ZET_ATTRLOG_TLS_KEY", key);
  if (SSL_CTX_check_private_key(context.get()) != 1) return failed("the key of ZET_ATTRLOG_TLS_KEY", key);
  if (SSL_CTX_load_verify_locations(context.get(), ca.charPtr(), nullptr) != 1)
    return failed("the CA certificates of ZET_ATTRLOG_TLS_CA", ca);
  SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER | (server ? SSL_VERIFY_FAIL_IF_NO_PEER_CERT : 0), nullptr);
  if (server) {
    // Clients do not resume sessions: no tickets to send after the handshake.
    SSL_CTX_set_num_tickets(context.get(), 0);
    if (STACK_OF(X509_NAME)* names = SSL_load_client_CA_file(ca.charPtr()))
      SSL_CTX_set_client_CA_list(context.get(), names);
  }
  return context;
}

String8 TlsIdentity::refusalOf(x509_st* certificate) const {
  if (allowedNames_.empty()) return String8();
  for (String8 const& name : allowedNames_)
    if (X509_check_host(certificate, name.charPtr(), name.size(), X509_CHECK_FLAG_NO_WILDCARDS, nullptr) == 1)
      return String8();
  char subject[256];
  X509_NAME_oneline(X509_get_subject_name(certificate), subject, sizeof subject);
  return format("its certificate (%s) names none of the peers of ZET_ATTRLOG_TLS_PEERS", subject);
}

}  // namespace NboAttrLog
}  // namespace Zet
