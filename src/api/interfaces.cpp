// The abstract interfaces whose construction and destruction are traced.
#include "norvane/interfaces.h"

#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

DataCollection::DataCollection() { QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::DataCollection::DataCollection"); }

DataCollection::~DataCollection() {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::DataCollection::~DataCollection");
}

IPPProvider::IPPProvider() { QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProvider::IPPProvider"); }

IPPProvider::~IPPProvider() { QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProvider::~IPPProvider"); }

OIDProvider::OIDProvider() { QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::OIDProvider::OIDProvider"); }

OIDProvider::~OIDProvider() { QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::OIDProvider::~OIDProvider"); }

}  // namespace Norvane
