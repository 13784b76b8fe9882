#include "providers/xml_response_body.h"

#include "providers/xml_provider.h"

namespace Norvane {

HRESULT ReadDocumentBody(QxLogging::CLogFunction& qxLog_, uint32_t category, HRESULT sent, HTTPResponse* response,
                         std::string* content) {
  if (sent != S_OK || response == nullptr) {
    QX_LOG(category, "The request was not answered (0x%08x)", static_cast<unsigned>(sent));
    return E_FAIL;
  }
  uint32_t status = response->GetStatus();
  if (status != 200) {
    QX_LOG(category, "The device answered HTTP %u", status);
    return E_FAIL;
  }
  uint32_t length = response->GetBodyLength();
  const uint8_t* body = response->GetBody();
  if (length > kMaxDeviceDocumentBytes) {
    QX_LOG(category, "The device's document of %u bytes is too large", length);
    return E_FAIL;
  }
  if (body == nullptr) {
    content->clear();
  } else {
    content->assign(reinterpret_cast<const char*>(body), length);
  }
  return S_OK;
}

}  // namespace Norvane
