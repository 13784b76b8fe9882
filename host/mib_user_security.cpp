#include "mib_user_security.h"

#include <atomic>
#include <cstring>

#include "norvane/host.h"

namespace NorvaneHost {

namespace {

struct Protocol {
  const oid* name;
  size_t length;
};

Protocol AuthProtocol(uint32_t protocol) {
  switch (protocol) {
    case NORVANE_SNMP_AUTH_SHA1:
      return {usmHMACSHA1AuthProtocol, OID_LENGTH(usmHMACSHA1AuthProtocol)};
    case NORVANE_SNMP_AUTH_SHA224:
      return {usmHMAC128SHA224AuthProtocol, OID_LENGTH(usmHMAC128SHA224AuthProtocol)};
    case NORVANE_SNMP_AUTH_SHA256:
      return {usmHMAC192SHA256AuthProtocol, OID_LENGTH(usmHMAC192SHA256AuthProtocol)};
    case NORVANE_SNMP_AUTH_SHA384:
      return {usmHMAC256SHA384AuthProtocol, OID_LENGTH(usmHMAC256SHA384AuthProtocol)};
    case NORVANE_SNMP_AUTH_SHA512:
      return {usmHMAC384SHA512AuthProtocol, OID_LENGTH(usmHMAC384SHA512AuthProtocol)};
    default:
      return {nullptr, 0};
  }
}

Protocol PrivProtocol(uint32_t protocol) {
  switch (protocol) {
    case NORVANE_SNMP_PRIV_AES128:
      return {usmAESPrivProtocol, OID_LENGTH(usmAESPrivProtocol)};
    case NORVANE_SNMP_PRIV_AES192:
      return {usmAES192PrivProtocol, OID_LENGTH(usmAES192PrivProtocol)};
    case NORVANE_SNMP_PRIV_AES256:
      return {usmAES256PrivProtocol, OID_LENGTH(usmAES256PrivProtocol)};
    default:
      return {nullptr, 0};
  }
}

bool MakeKey(const Protocol& hash, const Secret& secret, u_char* key, size_t* keyLength) {
  *keyLength = USM_AUTH_KU_LEN;
  auto* text = reinterpret_cast<u_char*>(const_cast<char*>(secret.Text().data()));
  return generate_Ku(hash.name, static_cast<u_int>(hash.length), text, secret.size(), key, keyLength) ==
         SNMPERR_SUCCESS;
}

}  // namespace

HRESULT FillUserSecurity(const SnmpUserSecurity& v3, netsnmp_session* setup) {
  if (v3.user.empty()) return E_INVALIDARG;
  setup->version = SNMP_VERSION_3;
  setup->securityModel = SNMP_SEC_MODEL_USM;
  // Copied by snmp_sess_open, like the peer name.
  setup->securityName = const_cast<char*>(v3.user.c_str());
  setup->securityNameLen = v3.user.size();
  setup->contextName = const_cast<char*>(v3.context.c_str());
  setup->contextNameLen = v3.context.size();
  if (v3.level == NORVANE_SNMP_NO_AUTH_NO_PRIV) {
    setup->securityLevel = SNMP_SEC_LEVEL_NOAUTH;
    return S_OK;
  }
  Protocol auth = AuthProtocol(v3.authProtocol);
  if (auth.name == nullptr) return E_INVALIDARG;
  setup->securityLevel = SNMP_SEC_LEVEL_AUTHNOPRIV;
  setup->securityAuthProto = const_cast<oid*>(auth.name);
  setup->securityAuthProtoLen = auth.length;
  if (!MakeKey(auth, v3.authPassphrase, setup->securityAuthKey, &setup->securityAuthKeyLen)) return E_INVALIDARG;
  if (v3.level != NORVANE_SNMP_AUTH_PRIV) return S_OK;
  Protocol priv = PrivProtocol(v3.privProtocol);
  if (priv.name == nullptr) return E_INVALIDARG;
  setup->securityLevel = SNMP_SEC_LEVEL_AUTHPRIV;
  setup->securityPrivProto = const_cast<oid*>(priv.name);
  setup->securityPrivProtoLen = priv.length;
  // The privacy key is made with the authentication protocol's digest.
  if (!MakeKey(auth, v3.privPassphrase, setup->securityPrivKey, &setup->securityPrivKeyLen)) return E_INVALIDARG;
  return S_OK;
}

void ForgetKeys(netsnmp_session* setup) {
  explicit_bzero(setup->securityAuthKey, sizeof setup->securityAuthKey);
  explicit_bzero(setup->securityPrivKey, sizeof setup->securityPrivKey);
}

std::mutex& UserSecurityLock() {
  static std::mutex lock;
  return lock;
}

uint64_t NextUserSessionSerial() {
  static std::atomic<uint64_t> next{1};
  return next.fetch_add(1);
}

void InstallSessionUser(void* session, uint64_t serial) {
  // The session whose keys the table holds last; any other session of the
  // same user puts its own back before it sends.
  static uint64_t installed = 0;
  if (installed == serial) return;
  installed = 0;
  netsnmp_session* own = snmp_sess_session(session);
  if (own == nullptr || own->securityName == nullptr) return;
  own->flags &= ~SNMP_FLAGS_USER_CREATED;
  if (own->securityEngineIDLen == 0) {
    // The agent's engine is found by this exchange, which then makes the
    // entry from this session unless one of the user is already there.
    for (usmUser* user = usm_get_userList(); user != nullptr;) {
      usmUser* next = user->next;
      if (user->name != nullptr && std::strcmp(user->name, own->securityName) == 0) {
        usm_remove_user(user);  // answers the list's new head, not the entry
        usm_free_user(user);
      }
      user = next;
    }
    installed = serial;
    return;
  }
  if (usmUser* stale = usm_get_user(own->securityEngineID, own->securityEngineIDLen, own->securityName)) {
    usm_remove_user(stale);
    usm_free_user(stale);
  }
  if (usm_create_user_from_session(own) == SNMPERR_SUCCESS) installed = serial;
}

}  // namespace NorvaneHost
