#pragma once
// TlsIdentity: who this process is on TLS connections between machines,
// and whom it trusts. Read once from the environment, on first use:
//
//   ZET_ATTRLOG_TLS_CERT   this process's certificate (PEM; the chain to
//                          the CA may follow it in the file)
//   ZET_ATTRLOG_TLS_KEY    its private key (PEM)
//   ZET_ATTRLOG_TLS_CA     the CA certificates peers must be signed by (PEM)
//   ZET_ATTRLOG_TLS_PEERS  optionally, the names (comma-separated) a client
//                          certificate must carry one of, as a DNS name or,
//                          when it has none, as its common name, to be
//                          served (wildcards in certificates do not count)
//   ZET_ATTRLOG_TLS_HANDSHAKE_SECONDS  how long a TLS handshake may take
//                          before the connection is dropped (default 10)
//
// With the first three set, the TCP listener of the attribute-log service
// speaks TLS 1.3 only and requires a client certificate signed by the CA;
// tls:// sources present the same certificate and verify the server's
// against the CA and the host name of the source. With none set, TCP stays
// plain and tls:// sources are refused; with some set or files that cannot
// be used, both are refused with the reason (problem()), never served plain.

#include <memory>
#include <vector>

#include "Zet/String8.h"

struct ssl_ctx_st;
struct x509_st;

namespace Zet {
namespace NboAttrLog {

class TlsIdentity {
 public:
  // The process's identity, read on the first call.
  static TlsIdentity const& process();

  // Whether any of the settings is given.
  bool configured() const { return configured_; }
  // Why the settings cannot be used; empty when they can.
  String8 const& problem() const { return problem_; }
  // The contexts of each end; null unless configured without a problem.
  ssl_ctx_st* serverContext() const { return server_.get(); }
  ssl_ctx_st* clientContext() const { return client_.get(); }
  // Why a verified client certificate may not be served (it is not among
  // ZET_ATTRLOG_TLS_PEERS); empty when it may.
  String8 refusalOf(x509_st* certificate) const;
  double handshakeSeconds() const { return handshakeSeconds_; }

  // Reads the settings from the environment (process() does it once).
  TlsIdentity();

 private:
  struct ContextFree {
    void operator()(ssl_ctx_st* context) const;
  };
  using Context = std::unique_ptr<ssl_ctx_st, ContextFree>;

  Context contextFor(bool server, String8 const& cert, String8 const& key, String8 const& ca);

  bool configured_ = false;
  String8 problem_;
  Context server_;
  Context client_;
  std::vector<String8> allowedNames_;
  double handshakeSeconds_ = 10;
};

}  // namespace NboAttrLog
}  // namespace Zet
