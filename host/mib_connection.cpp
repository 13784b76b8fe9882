#include "mib_connection.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "mib_user_security.h"
#include "support/ref.h"
#include "text.h"
#include "trace.h"

namespace NorvaneHost {

namespace {

// Objects asked for in one PDU; larger requests are split so that an agent's
// tooBig answer is unlikely.
constexpr size_t kMaxVarbindsPerPdu = 16;

// Rows one GETBULK reads ahead for a walk, and how long they stay good: a
// walk asks for its next row at once, and anything older may have changed.
constexpr long kBulkRepetitions = 50;
// Rows one GETBULK reads ahead for a table read row by row: a printer's tables
// have a handful of rows, and every row read past the table's end is spent, so
// the first read-ahead is short and each that a long table outruns is twice as long.
constexpr long kFirstRowRepetitions = 8;
// A walk's rows read ahead and the answers kept for GETs age alike.
constexpr uint64_t kPrefetchLifeMs = SnmpAnswers::kLifeMs;
// What AskBulkNoLock returns for an answer without rows or with an error.
constexpr HRESULT kBulkRefused = static_cast<HRESULT>(0x80040001);

uint64_t NowMs() {
  return static_cast<uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
          .count());
}

void ClearOut(VARIANT* value) {
  VariantClear(value);
  VariantInit(value);
}

const char* PduName(int command) {
  switch (command) {
    case SNMP_MSG_GET:
      return "GET";
    case SNMP_MSG_GETNEXT:
      return "GETNEXT";
    case SNMP_MSG_GETBULK:
      return "GETBULK";
    case SNMP_MSG_SET:
      return "SET";
    default:
      return "PDU";
  }
}

const char* TypeName(u_char type) {
  switch (type) {
    case ASN_INTEGER:
      return "INTEGER";
    case ASN_OCTET_STR:
      return "OCTET STRING";
    case ASN_OBJECT_ID:
      return "OID";
    case ASN_NULL:
      return "NULL";
    case ASN_IPADDRESS:
      return "IpAddress";
    case ASN_COUNTER:
      return "Counter32";
    case ASN_GAUGE:
      return "Gauge32";
    case ASN_TIMETICKS:
      return "TimeTicks";
    case ASN_OPAQUE:
      return "Opaque";
    case ASN_COUNTER64:
      return "Counter64";
    case SNMP_NOSUCHOBJECT:
      return "noSuchObject";
    case SNMP_NOSUCHINSTANCE:
      return "noSuchInstance";
    case SNMP_ENDOFMIBVIEW:
      return "endOfMibView";
    default:
      return "unknown type";
  }
}

// The objects of a PDU for the trace, with their types when `typed` (never
// their values); the first few only, a walk's bulk answer has dozens.
std::string DescribeVariables(const netsnmp_variable_list* variable, bool typed) {
  constexpr int kShown = 4;
  std::string text;
  int count = 0;
  for (; variable != nullptr; variable = variable->next_variable, ++count) {
    if (count >= kShown) continue;
    if (count > 0) text += ", ";
    text += WideToUtf8(FormatOid(variable->name, variable->name_length));
    if (typed) text.append(" ").append(TypeName(variable->type));
  }
  if (count > kShown) text += " and " + std::to_string(count - kShown) + " more";
  return text;
}

}  // namespace

void EnsureSnmpStarted() {
  static std::once_flag once;
  std::call_once(once, [] {
    // A library must not write to the host's terminal: every record is dropped.
    netsnmp_register_loghandler(NETSNMP_LOGHANDLER_NONE, LOG_DEBUG);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
    init_snmp("norvane-host");
  });
}

HRESULT MibConnectionImpl::Create(const HostName& host, const SnmpSettings& settings, MibConnectionImpl** connection,
                                  std::shared_ptr<SnmpAnswers> answers) {
  if (connection == nullptr) return E_POINTER;
  *connection = nullptr;
  EnsureSnmpStarted();
  auto made = QxUtils::ShareRef(new MibConnectionImpl(host, settings));
  made->answers_ = std::move(answers);
  HRESULT hr;
  {
    std::lock_guard<std::mutex> lock(made->mutex_);
    hr = made->OpenSessionNoLock();
  }
  if (FAILED(hr)) return hr;
  *connection = made.Release();
  return S_OK;
}

MibConnectionImpl::~MibConnectionImpl() { CloseSessionNoLock(); }

void MibConnectionImpl::CloseSessionNoLock() {
  if (!session_) return;
  if (!UserSecurity()) {
    session_.reset();
    return;
  }
  std::lock_guard<std::mutex> hold(UserSecurityLock());
  session_.reset();
}

HRESULT MibConnectionImpl::OpenSessionNoLock() {
  CloseSessionNoLock();
  pending_.reset();
  prefetch_.reset();
  std::string peer = SnmpPeerName(host_, settings_.port);
  netsnmp_session setup;
  snmp_sess_init(&setup);
  setup.version = settings_.version == 1 ? SNMP_VERSION_1 : SNMP_VERSION_2c;
  setup.peername = peer.data();
  // Copied by snmp_sess_open, like the peer name.
  setup.community = reinterpret_cast<u_char*>(settings_.community.data());
  setup.community_len = settings_.community.size();
  setup.timeout = static_cast<long>(settings_.timeoutMs) * 1000;
  setup.retries = static_cast<int>(settings_.retries);
  if (!UserSecurity()) {
    session_.reset(snmp_sess_open(&setup));
    return session_ ? S_OK : E_FAIL;
  }
  HRESULT hr = FillUserSecurity(settings_.v3, &setup);
  if (SUCCEEDED(hr)) {
    // The agent's engine is discovered by the first exchange.
    std::lock_guard<std::mutex> hold(UserSecurityLock());
    session_.reset(snmp_sess_open(&setup));
    userSerial_ = NextUserSessionSerial();
  }
  ForgetKeys(&setup);
  if (FAILED(hr)) return hr;
  return session_ ? S_OK : E_FAIL;
}

HRESULT MibConnectionImpl::ExchangeNoLock(netsnmp_pdu* request, SnmpPduPtr* response) {
  response->reset();
  if (!session_) {
    snmp_free_pdu(request);
    return E_FAIL;
  }
  std::string traced;
  auto started = std::chrono::steady_clock::now();
  if (Tracing()) {
    // Before sending, which consumes the request. A SET's values are not
    // traced, only their types.
    traced = std::string("snmp ") + PduName(request->command) + " " + SnmpPeerName(host_, settings_.port) +
             (UserSecurity()           ? " v3 user " + settings_.v3.user
              : settings_.version == 1 ? " v1"
                                       : " v2c") +
             " " + DescribeVariables(request->variables, request->command == SNMP_MSG_SET);
  }
  netsnmp_pdu* answer = nullptr;
  int status;
  if (UserSecurity()) {
    std::lock_guard<std::mutex> hold(UserSecurityLock());
    InstallSessionUser(session_.get(), userSerial_);
    status = snmp_sess_synch_response(session_.get(), request, &answer);
  } else {
    status = snmp_sess_synch_response(session_.get(), request, &answer);
  }
  response->reset(answer);
  if (!traced.empty()) {
    double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count();
    char elapsed[32];
    std::snprintf(elapsed, sizeof elapsed, " (%.1f ms)", ms);
    if (status == STAT_TIMEOUT) {
      traced += " -> no answer in time";
    } else if (status != STAT_SUCCESS || answer == nullptr) {
      traced += " -> failed";
    } else {
      // net-snmp's text starts with the status's name: "(noError) No Error".
      std::string_view error = snmp_errstring(static_cast<int>(answer->errstat));
      if (error.starts_with('(')) error = error.substr(1, error.find(')') - 1);
      traced += " -> " + DescribeVariables(answer->variables, true) + "; " + std::string(error);
    }
    TraceLine(traced + elapsed);
  }
  if (status == STAT_TIMEOUT) return kSnmpTimeout;
  if (status != STAT_SUCCESS || answer == nullptr) return E_FAIL;
  return S_OK;
}

// The row after `previous` in the same column: same length, same prefix, the
// last arc one more.
bool NextRow(const std::vector<oid>& previous, const std::vector<oid>& name) {
  return !previous.empty() && previous.size() == name.size() &&
         std::equal(previous.begin(), previous.end() - 1, name.begin()) && name.back() == previous.back() + 1;
}

std::string MibConnectionImpl::WhoNoLock() const {
  return UserSecurity() ? "v3 " + settings_.v3.user + "\n" + settings_.v3.context
                        : "v" + std::to_string(settings_.version) + " " + settings_.community;
}

bool MibConnectionImpl::FromAnswersNoLock(const std::vector<oid>& name, VARIANT* value, HRESULT* hr) {
  switch (answers_->Find(WhoNoLock(), name, NowMs(), value)) {
    case SnmpAnswers::Known::kPresent:
      *hr = S_OK;
      return true;
    case SnmpAnswers::Known::kAbsent:
      // As the agent's noSuchObject is answered.
      ClearOut(value);
      *hr = E_FAIL;
      return true;
    case SnmpAnswers::Known::kSilent:
      *hr = kSnmpTimeout;
      return true;
    case SnmpAnswers::Known::kUnknown:
      break;
  }
  return false;
}

HRESULT MibConnectionImpl::BulkNoLock(const std::vector<oid>& after, long rows, SnmpPduPtr* response) {
  for (long repetitions = rows;; repetitions /= 2) {
    netsnmp_pdu* request = snmp_pdu_create(SNMP_MSG_GETBULK);
    request->non_repeaters = 0;
    request->max_repetitions = repetitions;
    snmp_add_null_var(request, after.data(), after.size());
    HRESULT hr = ExchangeNoLock(request, response);
    if (FAILED(hr)) return hr;
    // An answer that would not fit one message: ask for fewer rows.
    if ((*response)->errstat == SNMP_ERR_TOOBIG && repetitions > 1) continue;
    return S_OK;
  }
}

void MibConnectionImpl::ReadRowsAheadNoLock(const std::vector<oid>& after) {
  // A table longer than the last read-ahead: read further ahead this time.
  rowRepetitions_ = after == lastRowAhead_ ? std::min(2 * rowRepetitions_, kBulkRepetitions) : kFirstRowRepetitions;
  SnmpPduPtr response;
  if (FAILED(BulkNoLock(after, rowRepetitions_, &response))) return;
  if (response->errstat != SNMP_ERR_NOERROR) {
    bulkRefused_ = true;
    return;
  }
  std::vector<SnmpAnswers::Row> rows;
  bool toEnd = false;
  const std::vector<oid>* previous = &after;
  for (netsnmp_variable_list* variable = response->variables; variable != nullptr; variable = variable->next_variable) {
    if (variable->type == SNMP_ENDOFMIBVIEW) {
      toEnd = true;
      break;
    }
    // Only climbing rows vouch for what lies between them; a value the library
    // cannot take ends the span too, so that a GET asks the agent for it.
    if (snmp_oid_compare(variable->name, variable->name_length, previous->data(), previous->size()) <= 0) break;
    SnmpAnswers::Row row;
    row.name.assign(variable->name, variable->name + variable->name_length);
    if (FAILED(VariableToVariant(*variable, row.value.Ptr()))) break;
    rows.push_back(std::move(row));
    previous = &rows.back().name;
  }
  lastRowAhead_ = rows.empty() ? std::vector<oid>() : rows.back().name;
  answers_->KeepSpan(WhoNoLock(), after, rows, toEnd, NowMs());
}

HRESULT MibConnectionImpl::GetValue(const char16_t* oidText, VARIANT* value) {
  if (oidText == nullptr || value == nullptr) return E_FAIL;
  std::optional<std::vector<oid>> name = ParseOid(oidText);
  if (!name) return E_INVALIDARG;
  std::lock_guard<std::mutex> lock(mutex_);
  pending_.reset();
  std::vector<oid> previous = std::exchange(lastGet_, *name);
  HRESULT known = E_FAIL;
  if (answers_) {
    if (FromAnswersNoLock(*name, value, &known)) return known;
    // SNMPv1 has no GETBULK.
    if (NextRow(previous, *name) && settings_.version != 1 && !bulkRefused_) {
      ReadRowsAheadNoLock(previous);
      if (FromAnswersNoLock(*name, value, &known)) return known;
    }
  }
  netsnmp_pdu* request = snmp_pdu_create(SNMP_MSG_GET);
  snmp_add_null_var(request, name->data(), name->size());
  SnmpPduPtr response;
  HRESULT hr = ExchangeNoLock(request, &response);
  if (hr == kSnmpTimeout && answers_) answers_->KeepSilence(WhoNoLock(), NowMs());
  if (FAILED(hr)) return hr;
  if (response->errstat != SNMP_ERR_NOERROR || response->variables == nullptr) {
    if (response->errstat == SNMP_ERR_NOSUCHNAME && answers_) answers_->Keep(WhoNoLock(), *name, nullptr, NowMs());
    return E_FAIL;
  }
  ClearOut(value);
  hr = VariableToVariant(*response->variables, value);
  KeepAnswerNoLock(*response->variables, *name, SUCCEEDED(hr) ? value : nullptr);
  return hr;
}

void MibConnectionImpl::KeepAnswerNoLock(const netsnmp_variable_list& variable, const std::vector<oid>& name,
                                         const VARIANT* value) {
  if (!answers_) return;
  if (value != nullptr) {
    answers_->Keep(WhoNoLock(), name, value, NowMs());
  } else if (variable.type == SNMP_NOSUCHOBJECT || variable.type == SNMP_NOSUCHINSTANCE) {
    answers_->Keep(WhoNoLock(), name, nullptr, NowMs());
  }
}

HRESULT MibConnectionImpl::GetMultipleValues(const char16_t** oids, VARIANT* values, uint32_t count) {
  if (oids == nullptr || values == nullptr || count == 0) return E_FAIL;
  for (uint32_t i = 0; i < count; ++i) ClearOut(&values[i]);
  std::lock_guard<std::mutex> lock(mutex_);
  pending_.reset();

  // Indexes of the objects still to ask for, with their parsed names.
  std::vector<std::pair<uint32_t, std::vector<oid>>> wanted;
  for (uint32_t i = 0; i < count; ++i) {
    if (oids[i] == nullptr) continue;
    if (auto name = ParseOid(oids[i])) wanted.emplace_back(i, std::move(*name));
  }
  size_t start = 0;
  size_t group = kMaxVarbindsPerPdu;
  while (start < wanted.size()) {
    size_t end = std::min(wanted.size(), start + group);
    netsnmp_pdu* request = snmp_pdu_create(SNMP_MSG_GET);
    for (size_t k = start; k < end; ++k) {
      snmp_add_null_var(request, wanted[k].second.data(), wanted[k].second.size());
    }
    SnmpPduPtr response;
    HRESULT hr = ExchangeNoLock(request, &response);
    if (FAILED(hr)) {
      for (uint32_t i = 0; i < count; ++i) ClearOut(&values[i]);
      if (hr == kSnmpTimeout && answers_) answers_->KeepSilence(WhoNoLock(), NowMs());
      return hr;
    }
    if (response->errstat == SNMP_ERR_NOSUCHNAME && response->errindex >= 1 &&
        static_cast<size_t>(response->errindex) <= end - start) {
      // An SNMPv1 agent refuses the whole PDU for one missing object: leave
      // that one empty and ask again for the others.
      const auto& missing = wanted[start + response->errindex - 1].second;
      if (answers_) answers_->Keep(WhoNoLock(), missing, nullptr, NowMs());
      wanted.erase(wanted.begin() + static_cast<std::ptrdiff_t>(start + response->errindex - 1));
      continue;
    }
    if (response->errstat == SNMP_ERR_TOOBIG) {
      // The answers would not fit one message: ask for fewer at a time. A
      // single object too big to send stays empty like a missing one.
      if (end - start > 1) {
        group = (end - start) / 2;
      } else {
        ++start;
      }
      continue;
    }
    if (response->errstat != SNMP_ERR_NOERROR) {
      for (uint32_t i = 0; i < count; ++i) ClearOut(&values[i]);
      return E_FAIL;
    }
    size_t k = start;
    for (netsnmp_variable_list* variable = response->variables; variable != nullptr && k < end;
         variable = variable->next_variable, ++k) {
      VARIANT* out = &values[wanted[k].first];
      bool ok = SUCCEEDED(VariableToVariant(*variable, out));
      if (!ok) ClearOut(out);
      // Only an answer for the object asked about says anything of it.
      if (snmp_oid_compare(variable->name, variable->name_length, wanted[k].second.data(), wanted[k].second.size()) ==
          0) {
        KeepAnswerNoLock(*variable, wanted[k].second, ok ? out : nullptr);
      }
    }
    start = end;
  }
  return S_OK;
}

HRESULT MibConnectionImpl::GetNextOidAndValue(const char16_t* oidText, char16_t* nextOid, uint32_t nextOidSize,
                                              VARIANT* value) {
  if (oidText == nullptr || nextOid == nullptr || nextOidSize == 0 || value == nullptr) return E_FAIL;
  std::optional<std::vector<oid>> name = ParseOid(oidText);
  if (!name) return E_INVALIDARG;
  std::lock_guard<std::mutex> lock(mutex_);

  if (!pending_ || pending_->asked != *name) {
    pending_.reset();
    PendingNext answer;
    HRESULT hr = NextNoLock(*name, &answer);
    if (FAILED(hr)) return hr;
    answer.asked = std::move(*name);
    pending_ = std::move(answer);
  }

  if (pending_->next.size() + 1 > nextOidSize) return E_OUTOFMEMORY;
  std::memcpy(nextOid, pending_->next.c_str(), (pending_->next.size() + 1) * sizeof(char16_t));
  ClearOut(value);
  *value = pending_->value.Detach();
  pending_.reset();
  return S_OK;
}

HRESULT MibConnectionImpl::NextNoLock(const std::vector<oid>& name, PendingNext* answer) {
  HRESULT hr = E_FAIL;
  if (FromPrefetchNoLock(name, answer, &hr)) return hr;
  prefetch_.reset();
  // SNMPv1 has no GETBULK; an agent that gave no usable answer to one is
  // walked with get-next from then on.
  bool v1 = settings_.version == 1;
  if (v1 || bulkRefused_) return AskNextNoLock(name, answer);
  hr = AskBulkNoLock(name, answer);
  if (hr != kBulkRefused) return hr;
  bulkRefused_ = true;
  return AskNextNoLock(name, answer);
}

bool MibConnectionImpl::FromPrefetchNoLock(const std::vector<oid>& name, PendingNext* answer, HRESULT* hr) {
  if (!prefetch_ || prefetch_->after != name || NowMs() - prefetch_->fetchedMs > kPrefetchLifeMs) return false;
  if (prefetch_->rows.empty()) {
    if (!prefetch_->endFollows) return false;
    prefetch_.reset();
    *hr = E_FAIL;
    return true;
  }
  Row& row = prefetch_->rows.front();
  answer->next = FormatOid(row.name.data(), row.name.size());
  answer->value = std::move(row.value);
  prefetch_->after = std::move(row.name);
  prefetch_->rows.pop_front();
  *hr = S_OK;
  return true;
}

HRESULT MibConnectionImpl::AskNextNoLock(const std::vector<oid>& name, PendingNext* answer) {
  netsnmp_pdu* request = snmp_pdu_create(SNMP_MSG_GETNEXT);
  snmp_add_null_var(request, name.data(), name.size());
  SnmpPduPtr response;
  HRESULT hr = ExchangeNoLock(request, &response);
  if (FAILED(hr)) return hr;
  // noSuchName (v1) or endOfMibView (v2c): there is no next object.
  if (response->errstat != SNMP_ERR_NOERROR || response->variables == nullptr) return E_FAIL;
  const netsnmp_variable_list& variable = *response->variables;
  if (!FollowsOid(variable, name)) return E_FAIL;
  answer->next = FormatOid(variable.name, variable.name_length);
  return VariableToVariant(variable, answer->value.Ptr());
}

HRESULT MibConnectionImpl::AskBulkNoLock(const std::vector<oid>& name, PendingNext* answer) {
  SnmpPduPtr response;
  HRESULT hr = BulkNoLock(name, kBulkRepetitions, &response);
  if (FAILED(hr)) return hr;
  if (response->errstat != SNMP_ERR_NOERROR || response->variables == nullptr) return kBulkRefused;
  Prefetch ahead;
  const oid* previous = nullptr;
  size_t previousLength = 0;
  bool first = true;
  for (netsnmp_variable_list* variable = response->variables; variable != nullptr; variable = variable->next_variable) {
    if (variable->type == SNMP_ENDOFMIBVIEW) {
      if (first) return E_FAIL;
      ahead.endFollows = true;
      break;
    }
    // Rows must climb. The first is the get-next answer and ends the walk
    // when it does not; at a later one the read-ahead ends, and the walk asks
    // again from the last good row.
    if (first && !FollowsOid(*variable, name)) return E_FAIL;
    if (!first && snmp_oid_compare(variable->name, variable->name_length, previous, previousLength) <= 0) break;
    if (first) {
      answer->next = FormatOid(variable->name, variable->name_length);
      hr = VariableToVariant(*variable, answer->value.Ptr());
      if (FAILED(hr)) return hr;
      ahead.after.assign(variable->name, variable->name + variable->name_length);
      first = false;
    } else {
      Row row;
      row.name.assign(variable->name, variable->name + variable->name_length);
      // A value the library cannot take ends the read-ahead; the agent is asked
      // again for it and the caller gets the error then.
      if (FAILED(VariableToVariant(*variable, row.value.Ptr()))) break;
      ahead.rows.push_back(std::move(row));
    }
    previous = variable->name;
    previousLength = variable->name_length;
  }
  ahead.fetchedMs = NowMs();
  prefetch_ = std::move(ahead);
  return S_OK;
}

HRESULT MibConnectionImpl::SetValue(const char16_t* oidText, const VARIANT* value) {
  if (oidText == nullptr || value == nullptr) return E_FAIL;
  std::optional<std::vector<oid>> name = ParseOid(oidText);
  if (!name) return E_INVALIDARG;
  std::optional<SnmpSetValue> sent = VariantToSetValue(*value);
  if (!sent) return DISP_E_TYPEMISMATCH;
  std::lock_guard<std::mutex> lock(mutex_);
  pending_.reset();
  prefetch_.reset();
  lastGet_.clear();
  // What the agent said before may be what this SET changes.
  if (answers_) answers_->Forget();
  netsnmp_pdu* request = snmp_pdu_create(SNMP_MSG_SET);
  if (sent->type == ASN_INTEGER) {
    snmp_pdu_add_variable(request, name->data(), name->size(), ASN_INTEGER, &sent->integer, sizeof(long));
  } else {
    snmp_pdu_add_variable(request, name->data(), name->size(), ASN_OCTET_STR, sent->bytes.data(), sent->bytes.size());
  }
  SnmpPduPtr response;
  HRESULT hr = ExchangeNoLock(request, &response);
  if (FAILED(hr)) return hr;
  return response->errstat == SNMP_ERR_NOERROR ? S_OK : E_FAIL;
}

HRESULT MibConnectionImpl::SetCommunity(const char16_t* community) {
  std::lock_guard<std::mutex> lock(mutex_);
  std::string text = WideToUtf8(community);
  settings_.community = text.empty() ? SnmpSettings().community : text;
  return OpenSessionNoLock();
}

}  // namespace NorvaneHost
