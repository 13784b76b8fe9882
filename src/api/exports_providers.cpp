// Factories of the XML, web-services and SNMP providers.
#include "norvane/api.h"
#include "providers/oid_provider_impl.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

// Each provider detects its protocol at creation; until a provider is built into
// the library its factory answers as for a device that does not speak it.

extern "C" Norvane::VEXAProvider* CreateVEXAProvider(Norvane::Address* address) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateVEXAProvider");
  (void)address;
  return nullptr;
}

extern "C" Norvane::OIDProvider* CreateOIDProvider(Norvane::Address* address) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateOIDProvider");
  return Norvane::OIDProviderImpl::Create(address);
}

extern "C" Norvane::WSProvider* CreateWSProvider(Norvane::Address* address) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateWSProvider");
  (void)address;
  return nullptr;
}
