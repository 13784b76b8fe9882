// The host's SNMP connection (v1/v2c/v3) on net-snmp's single-session API: every
// connection owns its own session, so connections can be used on different
// threads at once; one connection serialises its own calls.
#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "norvane/com.h"
#include "norvane/transport.h"
#include "settings.h"
#include "snmp_answers.h"
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
  // Opens the session; *connection receives one reference. `answers`, shared by
  // the connections of one address, lets a GET be answered from what the agent
  // said in the last second (null: every GET asks the agent).
  static HRESULT Create(const HostName& host, const SnmpSettings& settings, MibConnectionImpl** connection,
                        std::shared_ptr<SnmpAnswers> answers = nullptr);

  ~MibConnectionImpl() override;
  HRESULT Open() override { return S_OK; }
  // Out variants must be initialised; their old values are cleared. A GET of the
  // row after the one the last GET named (a table read row by row) reads the
  // rows that follow with one GETBULK, and the next GETs are answered from it.
  HRESULT GetValue(const char16_t* oid, VARIANT* value) override;
  // One answer per OID: a missing object leaves its variant empty without
  // failing the others. Fails only when the agent does not answer.
  HRESULT GetMultipleValues(const char16_t** oids, VARIANT* values, uint32_t count) override;
  // E_OUTOFMEMORY when nextOid is too small; the answer is then kept, and the
  // caller's next call for the same OID (with a larger buffer) is answered
  // from it instead of asking the agent again. E_FAIL past the last object.
  HRESULT GetNextOidAndValue(const char16_t* oid, char16_t* nextOid, uint32_t nextOidSize, VARIANT* value) override;
  HRESULT SetValue(const char16_t* oid, const VARIANT* value) override;
  HRESULT SetCommunity(const char16_t* community) override;
  HRESULT Close() override { return S_OK; }
  const char* GetTypeName() override { return "NorvaneHost::MibConnectionImpl"; }

 private:
  MibConnectionImpl(HostName host, SnmpSettings settings) : host_(std::move(host)), settings_(std::move(settings)) {}
  HRESULT OpenSessionNoLock();
  void CloseSessionNoLock();
  bool UserSecurity() const { return settings_.version == 3; }
  // Sends the PDU (always consumed) and waits for the answer.
  HRESULT ExchangeNoLock(netsnmp_pdu* request, SnmpPduPtr* response);

  struct PendingNext {
    std::vector<oid> asked;
    std::u16string next;
    Norvane::Variant value;
  };
  struct Row {
    std::vector<oid> name;
    Norvane::Variant value;
  };
  // The rows after the last answer handed out, read ahead with one GETBULK:
  // a walk's next get-next names `after` and is answered from here.
  struct Prefetch {
    std::vector<oid> after;
    std::deque<Row> rows;
    bool endFollows = false;  // the agent said endOfMibView after the rows
    uint64_t fetchedMs = 0;
  };

  // The object after `name`, from the read-ahead when it fits, else asked of
  // the agent. E_FAIL past the last object.
  HRESULT NextNoLock(const std::vector<oid>& name, PendingNext* answer);
  bool FromPrefetchNoLock(const std::vector<oid>& name, PendingNext* answer, HRESULT* hr);
  HRESULT AskNextNoLock(const std::vector<oid>& name, PendingNext* answer);
  HRESULT AskBulkNoLock(const std::vector<oid>& name, PendingNext* answer);
  // One GETBULK of `rows` objects after `after`, fewer when the answer would be too big.
  HRESULT BulkNoLock(const std::vector<oid>& after, long rows, SnmpPduPtr* response);
  // A GET answered from the shared answers: false when they do not know.
  bool FromAnswersNoLock(const std::vector<oid>& name, VARIANT* value, HRESULT* hr);
  // One GETBULK after `after`, its rows kept in the shared answers.
  void ReadRowsAheadNoLock(const std::vector<oid>& after);
  // Who the agent answers: the community, or the v3 user and context.
  std::string WhoNoLock() const;
  // Keeps a GET's answer for the object asked about: its value, or that it does
  // not exist (value null and the agent said so).
  void KeepAnswerNoLock(const netsnmp_variable_list& variable, const std::vector<oid>& name, const VARIANT* value);

  HostName host_;
  SnmpSettings settings_;
  std::mutex mutex_;
  SnmpSessionPtr session_;
  uint64_t userSerial_ = 0;  // names a v3 session to the process-wide user table
  std::optional<PendingNext> pending_;
  std::optional<Prefetch> prefetch_;
  bool bulkRefused_ = false;
  std::shared_ptr<SnmpAnswers> answers_;
  std::vector<oid> lastGet_;       // the OID of the last GET, to see a table read row by row
  std::vector<oid> lastRowAhead_;  // the last row the last row read-ahead delivered
  long rowRepetitions_ = 0;
};

}  // namespace NorvaneHost
