// The host's SNMP connection (v1/v2c) on net-snmp's single-session API: every
// connection owns its own session, so connections can be used on different
// threads at once; one connection serialises its own calls.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "norvane/com.h"
#include "norvane/transport.h"
#include "settings.h"
#include "snmp_value.h"
#include "url.h"

namespace NorvaneHost {

struct SnmpSessionDeleter {
  void operator()(void* session) const noexcept { snmp_sess_close(session); }
};
struct SnmpPduDeleter {
  void operator()(netsnmp_pdu* pdu) const noexcept { snmp_free_pdu(pdu); }
};
using SnmpSessionPtr = std::unique_ptr<void, SnmpSessionDeleter>;
using SnmpPduPtr = std::unique_ptr<netsnmp_pdu, SnmpPduDeleter>;

// net-snmp's process-wide start, done once, with its logging silenced and no
// configuration or state files read or written.
void EnsureSnmpStarted();

// HRESULT of a request that got no answer in time.
constexpr HRESULT kSnmpTimeout = static_cast<HRESULT>(0x800705B4);  // ERROR_TIMEOUT

class MibConnectionImpl final : public Norvane::DisposableObject<Norvane::MIBConnection> {
 public:
  // Opens the session; *connection receives one reference.
  static HRESULT Create(const HostName& host, const SnmpSettings& settings, MibConnectionImpl** connection);

  HRESULT Open() override { return S_OK; }
  // Out variants must be initialised; their old values are cleared.
  HRESULT GetValue(const char16_t* oid, VARIANT* value) override;
  // One answer per OID: a missing object leaves its variant empty without
  // failing the others. Fails only when the agent does not answer.
  HRESULT GetMultipleValues(const char16_t** oids, VARIANT* values, uint32_t count) override;
  // E_OUTOFMEMORY when nextOid is too small; the answer is then kept, and the
  // caller's next call for the same OID (with a larger buffer) is answered
  // from it instead of asking the agent again. E_FAIL past the last object.
  HRESULT GetNextOidAndValue(const char16_t* oid, char16_t* nextOid, uint32_t nextOidSize,
                             VARIANT* value) override;
  HRESULT SetValue(const char16_t* oid, const VARIANT* value) override;
  HRESULT SetCommunity(const char16_t* community) override;
  HRESULT Close() override { return S_OK; }
  const char* GetTypeName() override { return "NorvaneHost::MibConnectionImpl"; }

 private:
  MibConnectionImpl(HostName host, SnmpSettings settings) : host_(std::move(host)), settings_(std::move(settings)) {}
  HRESULT OpenSessionNoLock();
  // Sends the PDU (always consumed) and waits for the answer.
  HRESULT ExchangeNoLock(netsnmp_pdu* request, SnmpPduPtr* response);

  struct PendingNext {
    std::vector<oid> asked;
    std::u16string next;
    Norvane::Variant value;
  };

  HostName host_;
  SnmpSettings settings_;
  std::mutex mutex_;
  SnmpSessionPtr session_;
  std::optional<PendingNext> pending_;
};

}  // namespace NorvaneHost
