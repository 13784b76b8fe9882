// Factories of the XML, web-services and SNMP providers. Each provider detects
// its protocol at creation: null means the device does not answer it.
#include "norvane/api.h"
#include "providers/oid_provider_impl.h"
#include "providers/vexa_provider_impl.h"
#include "providers/ws_provider_impl.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

extern "C" Norvane::VEXAProvider* CreateVEXAProvider(Norvane::Address* address) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateVEXAProvider");
  return Norvane::VEXAProviderImpl::Create(address);
}

extern "C" Norvane::OIDProvider* CreateOIDProvider(Norvane::Address* address) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateOIDProvider");
  return Norvane::OIDProviderImpl::Create(address);
}

extern "C" Norvane::WSProvider* CreateWSProvider(Norvane::Address* address) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateWSProvider");
  return Norvane::WSProviderImpl::Create(address);
}
