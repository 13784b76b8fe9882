// The one reading of a device's answer that both fetch paths (GET and the SOAP
// POST) share, so they fail alike.
#pragma once

#include <string>

#include "norvane/transport.h"
#include "support/log.h"

namespace Norvane {

// `sent` is what Send returned and `response` what it handed back. A failed send,
// no response, a status other than 200 or a body over kMaxDeviceDocumentBytes
// give E_FAIL, logged in `category`; otherwise the body becomes *content and the
// result is S_OK.
HRESULT ReadDocumentBody(QxLogging::CLogFunction& scope, uint32_t category, HRESULT sent, HTTPResponse* response,
                         std::string* content);

}  // namespace Norvane
