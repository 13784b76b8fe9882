// SNMP object values of a device, read through the one MIBConnection the host's
// Address hands out. The provider speaks no SNMP itself: it checks arguments and
// forwards, so every status of the connection reaches the caller unchanged.
#pragma once

#include "norvane/disposable.h"
#include "norvane/interfaces.h"
#include "norvane/transport.h"
#include "support/ref.h"

namespace Norvane {

class OIDProviderImpl : public DisposableObject<OIDProvider> {
 public:
  // The device description of the first host-resources device entry; a device
  // that answers it with non-empty text is taken to speak SNMP.
  static constexpr const char16_t* kDetectionOid = u"1.3.6.1.2.1.25.3.2.1.3.1";

  // Detection: a provider with one reference for the caller when the device
  // answers the detection object with text, otherwise null.
  static OIDProviderImpl* Create(Address* address);

  // `oid` is one OID, or "READ;WRITE": READ is read into `value`, then WRITE
  // (when not empty) is set to the machine integer 1 and the set's status is
  // the result. The second form lets a data map trigger an action on the device
  // while reading.
  HRESULT GetValue(const char16_t* oid, VARIANT* value) override;
  // E_OUTOFMEMORY from the connection means the next-OID buffer was too small.
  HRESULT GetNextOidAndValue(const char16_t* oid, char16_t* nextOid, uint32_t nextOidSize, VARIANT* value) override;
  HRESULT GetMultipleValues(const char16_t** oids, VARIANT* values, uint32_t count) override;

  const char* GetTypeName() override { return "Norvane::OIDProviderImpl"; }

 private:
  // Takes its own reference on the connection.
  explicit OIDProviderImpl(MIBConnection* connection);
  ~OIDProviderImpl() override;

  QxUtils::Ref<MIBConnection> connection_;
};

}  // namespace Norvane
