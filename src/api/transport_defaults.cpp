// Defaults for the transport entries the library never calls, so a host only
// implements what the library uses.
#include "norvane/transport.h"

namespace Norvane {

HRESULT HTTPResponse::GetStatusText(const char16_t** text) {
  if (text != nullptr) *text = nullptr;
  return E_NOTIMPL;
}
const char16_t* HTTPResponse::GetContentType() { return nullptr; }
HRESULT HTTPResponse::GetAllHeaders(const char16_t** text) {
  if (text != nullptr) *text = nullptr;
  return E_NOTIMPL;
}

const char16_t* HTTPRequest::GetURL() { return nullptr; }
HRESULT HTTPRequest::SetTimeout(uint32_t) { return E_NOTIMPL; }
HRESULT HTTPRequest::Cancel() { return E_NOTIMPL; }

HRESULT MIBConnection::Open() { return E_NOTIMPL; }
HRESULT MIBConnection::SetCommunity(const char16_t*) { return E_NOTIMPL; }
HRESULT MIBConnection::Close() { return E_NOTIMPL; }

HRESULT Stream::Open(const char16_t*) { return E_NOTIMPL; }
HRESULT Stream::Close() { return E_NOTIMPL; }
HRESULT Stream::Read(uint8_t*, uint32_t, uint32_t*) { return E_NOTIMPL; }
HRESULT Stream::Write(const uint8_t*, uint32_t, uint32_t*) { return E_NOTIMPL; }
HRESULT Stream::Flush() { return E_NOTIMPL; }
HRESULT Stream::Seek(int64_t, uint32_t, uint64_t*) { return E_NOTIMPL; }
HRESULT Stream::GetSize(uint64_t*) { return E_NOTIMPL; }
HRESULT Stream::SetSize(uint64_t) { return E_NOTIMPL; }
HRESULT Stream::GetStatus(uint32_t*) { return E_NOTIMPL; }
HRESULT Stream::SetTimeout(uint32_t) { return E_NOTIMPL; }
HRESULT Stream::Cancel() { return E_NOTIMPL; }
HRESULT Stream::GetErrorCode(uint32_t*) { return E_NOTIMPL; }
HRESULT Stream::Reset() { return E_NOTIMPL; }

HRESULT Notifier::Register(const char16_t*, uint64_t) { return E_NOTIMPL; }
HRESULT Notifier::Unregister(const char16_t*) { return E_NOTIMPL; }
HRESULT Notifier::Notify(const char16_t*, const VARIANT*) { return E_NOTIMPL; }
HRESULT Notifier::Wait(uint32_t) { return E_NOTIMPL; }
HRESULT Notifier::Cancel() { return E_NOTIMPL; }
HRESULT Notifier::GetErrorCode(uint32_t*) { return E_NOTIMPL; }

const char16_t* Address::GetName() { return nullptr; }
const char16_t* Address::GetMACAddress() { return nullptr; }
const char16_t* Address::GetCommunityName() { return nullptr; }
HRESULT Address::CreateStream(Stream** stream) {
  if (stream != nullptr) *stream = nullptr;
  return E_NOTIMPL;
}
HRESULT Address::CreateNotifier(Notifier** notifier) {
  if (notifier != nullptr) *notifier = nullptr;
  return E_NOTIMPL;
}
HRESULT Address::Ping() { return E_NOTIMPL; }
bool Address::IsSecure() { return false; }
HRESULT Address::SetTimeout(uint32_t) { return E_NOTIMPL; }
uint32_t Address::GetTimeout() { return 0; }

}  // namespace Norvane
