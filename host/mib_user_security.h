// SNMPv3 user-based security on net-snmp: the session's user, level, protocols
// and keys, and the process-wide user table net-snmp judges every message by.
#pragma once

#include <cstdint>
#include <mutex>

#include "norvane/com.h"
#include "settings.h"
#include "snmp_value.h"

namespace NorvaneHost {

// Fills the v3 fields of a session about to open; the pass phrases become
// keys here. E_INVALIDARG when the level asks for a protocol that is not set.
// The caller clears the keys from `setup` once the session is open.
HRESULT FillUserSecurity(const SnmpUserSecurity& v3, netsnmp_session* setup);
void ForgetKeys(netsnmp_session* setup);

// net-snmp keeps SNMPv3 users, their localized keys and the agents' engine
// times in process-wide tables without locks, so every v3 session open,
// exchange and close holds this lock.
std::mutex& UserSecurityLock();

// Before an exchange, under UserSecurityLock: makes net-snmp's entry for the
// session's user at its agent hold this session's keys. Two connections of
// one user and agent may have been given different pass phrases, and the
// table holds one entry per user and agent. `serial` names the session.
void InstallSessionUser(void* session, uint64_t serial);
// A number for a new v3 session, never given twice in the process.
uint64_t NextUserSessionSerial();

}  // namespace NorvaneHost
