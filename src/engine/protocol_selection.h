// One row per data-map protocol: what must hold to try it, the provider that
// detects the device, the mapper that wraps it and how the device's identity is
// read through it.
#pragma once

#include "norvane/com.h"
#include "norvane/datamap.h"
#include "norvane/transport.h"
#include "support/log.h"

namespace Norvane {

class DataCollectionImpl;

struct ProtocolAttempt {
  // The mapper with one reference for the caller, or null when the device does
  // not answer this protocol.
  DataCollectionImpl* mapper = nullptr;
  // Set when an identity was wanted and the read answered 0.
  bool identityRead = false;
  Variant identity;
};

ProtocolAttempt TryDataMap(Address* address, DataMapSpec* dataMap, bool wantIdentity, QxLogging::CLogFunction& log);

}  // namespace Norvane
