#include "net_address.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <memory>
#include <utility>

#include "http_request.h"
#include "mib_connection.h"
#include "text.h"

namespace NorvaneHost {

NetAddressImpl* NetAddressImpl::Create(const char16_t* host) {
  if (host == nullptr || *host == 0) return nullptr;
  auto* address = new NetAddressImpl(host);
  address->AddRef();
  return address;
}

namespace {

bool IsAddressLiteral(const std::string& text) {
  in_addr v4;
  in6_addr v6;
  return inet_pton(AF_INET, text.c_str(), &v4) == 1 || inet_pton(AF_INET6, text.c_str(), &v6) == 1;
}

// The library's connect probe takes address literals only. IPv4 first: printers
// and their agents listen there far more often than on IPv6 alone.
std::string ResolveForProbe(const std::string& name, std::string* error) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  int status = getaddrinfo(name.c_str(), nullptr, &hints, &found);
  if (status != 0 || found == nullptr) {
    *error = gai_strerror(status != 0 ? status : EAI_NONAME);
    return {};
  }
  std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owned(found, &freeaddrinfo);
  const addrinfo* chosen = found;
  for (const addrinfo* a = found; a != nullptr; a = a->ai_next) {
    if (a->ai_family == AF_INET) {
      chosen = a;
      break;
    }
  }
  char text[INET6_ADDRSTRLEN] = {};
  const void* raw = chosen->ai_family == AF_INET
                        ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in*>(chosen->ai_addr)->sin_addr)
                        : static_cast<const void*>(&reinterpret_cast<const sockaddr_in6*>(chosen->ai_addr)->sin6_addr);
  if (inet_ntop(chosen->ai_family, raw, text, sizeof text) == nullptr) {
    *error = "unusable address";
    return {};
  }
  return text;
}

}  // namespace

NetAddressImpl::NetAddressImpl(std::u16string host)
    : hostText_(std::move(host)), host_(ParseHostName(hostText_)), probeText_(hostText_) {
  if (!host_ || host_->ipv6 || IsAddressLiteral(host_->text)) return;
  std::string resolved = ResolveForProbe(host_->text, &resolveError_);
  if (!resolved.empty()) probeText_ = Utf8ToWide(resolved);
}

NetAddressImpl::~NetAddressImpl() = default;

const char16_t* NetAddressImpl::GetCommunityName() {
  std::lock_guard<std::mutex> lock(mutex_);
  community16_ = Utf8ToWide(snmp_.community);
  return community16_.c_str();
}

HRESULT NetAddressImpl::MakeRequest(Norvane::HTTPRequest** request, uint32_t port) {
  if (request == nullptr) return E_POINTER;
  *request = nullptr;
  if (port == 0 || port > 65535) return E_INVALIDARG;
  // A port name (USB001) or malformed text cannot be reached over the network.
  if (!host_) return E_FAIL;
  bool tls;
  uint32_t effective;
  HttpSettings settings;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    tls = UsesTls(port, secure_);
    effective = EffectivePort(port, portText_);
    settings = http_;
  }
  auto* made = new HttpRequestImpl(this, *host_, tls, effective, settings);
  made->AddRef();
  *request = made;
  return S_OK;
}

HRESULT NetAddressImpl::CreateRequest(Norvane::HTTPRequest** request, uint32_t port) {
  return MakeRequest(request, port);
}

HRESULT NetAddressImpl::CreateRequestEx(Norvane::HTTPRequest** request, uint32_t port) {
  return MakeRequest(request, port);
}

HRESULT NetAddressImpl::GetMIBConnection(Norvane::MIBConnection** connection) {
  if (connection == nullptr) return E_POINTER;
  *connection = nullptr;
  if (!host_) return E_FAIL;
  SnmpSettings settings;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    settings = snmp_;
  }
  MibConnectionImpl* made = nullptr;
  HRESULT hr = MibConnectionImpl::Create(*host_, settings, &made, snmpAnswers_);
  if (SUCCEEDED(hr)) *connection = made;
  return hr;
}

HRESULT NetAddressImpl::SetPortText(const char16_t* port) {
  std::lock_guard<std::mutex> lock(mutex_);
  portText_ = port == nullptr ? std::u16string() : std::u16string(port);
  // A port the user named (in a URI or HOST:PORT) is where the printer listens:
  // the provider's probe goes there too.
  SetProbePortTextFlag(ParsePort(portText_).has_value());
  return S_OK;
}

const char16_t* NetAddressImpl::GetPortText() {
  std::lock_guard<std::mutex> lock(mutex_);
  return portText_.c_str();
}

HRESULT NetAddressImpl::SetSecure(bool secure) {
  std::lock_guard<std::mutex> lock(mutex_);
  secure_ = secure;
  return S_OK;
}

bool NetAddressImpl::IsSecure() {
  std::lock_guard<std::mutex> lock(mutex_);
  return secure_;
}

HRESULT NetAddressImpl::SetTimeout(uint32_t milliseconds) {
  if (milliseconds == 0) return E_INVALIDARG;
  std::lock_guard<std::mutex> lock(mutex_);
  http_.readTimeoutMs = milliseconds;
  return S_OK;
}

uint32_t NetAddressImpl::GetTimeout() {
  std::lock_guard<std::mutex> lock(mutex_);
  return http_.readTimeoutMs;
}

void NetAddressImpl::SetHttpTimeouts(uint32_t connectMs, uint32_t readMs) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (connectMs != 0) http_.connectTimeoutMs = connectMs;
  if (readMs != 0) http_.readTimeoutMs = readMs;
}

void NetAddressImpl::SetSnmpCommunity(std::string community) {
  std::lock_guard<std::mutex> lock(mutex_);
  snmp_.community = community.empty() ? SnmpSettings().community : std::move(community);
}

void NetAddressImpl::SetSnmpVersion(uint32_t version) {
  std::lock_guard<std::mutex> lock(mutex_);
  snmp_.version = version;
}

void NetAddressImpl::SetSnmpPort(uint32_t port) {
  std::lock_guard<std::mutex> lock(mutex_);
  snmp_.port = port;
}

void NetAddressImpl::SetSnmpTimeout(uint32_t milliseconds, uint32_t retries) {
  std::lock_guard<std::mutex> lock(mutex_);
  snmp_.timeoutMs = milliseconds;
  snmp_.retries = retries;
}

void NetAddressImpl::SetSnmpUser(std::string user, uint32_t level, std::string context) {
  std::lock_guard<std::mutex> lock(mutex_);
  snmp_.version = 3;
  snmp_.v3.user = std::move(user);
  snmp_.v3.level = level;
  snmp_.v3.context = std::move(context);
}

void NetAddressImpl::SetSnmpAuthentication(uint32_t protocol, Secret passphrase) {
  std::lock_guard<std::mutex> lock(mutex_);
  snmp_.v3.authProtocol = protocol;
  snmp_.v3.authPassphrase = std::move(passphrase);
}

void NetAddressImpl::SetSnmpPrivacy(uint32_t protocol, Secret passphrase) {
  std::lock_guard<std::mutex> lock(mutex_);
  snmp_.v3.privProtocol = protocol;
  snmp_.v3.privPassphrase = std::move(passphrase);
}

std::unique_ptr<CurlChannel> NetAddressImpl::TakeChannel() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!idle_.empty()) {
      std::unique_ptr<CurlChannel> channel = std::move(idle_.back());
      idle_.pop_back();
      return channel;
    }
  }
  return CurlChannel::Create();
}

void NetAddressImpl::ReturnChannel(std::unique_ptr<CurlChannel> channel) {
  if (!channel) return;
  std::lock_guard<std::mutex> lock(mutex_);
  if (idle_.size() < kMaxIdleChannels) idle_.push_back(std::move(channel));
  // else: the channel and its connection close here
}

void NetAddressImpl::NoteAuthSchemes(long schemes) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (schemes != 0) authSchemes_ = schemes;
}

long NetAddressImpl::KnownAuthSchemes() {
  std::lock_guard<std::mutex> lock(mutex_);
  return authSchemes_;
}

void NetAddressImpl::NoteChunkedRefusal(uint32_t status) {
  std::lock_guard<std::mutex> lock(mutex_);
  chunkedRefusal_ = status;
}

uint32_t NetAddressImpl::ChunkedRefusal() {
  std::lock_guard<std::mutex> lock(mutex_);
  return chunkedRefusal_;
}

void NetAddressImpl::SetNextStreamLength(uint64_t rest) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (rest == UINT64_MAX) nextStreamRest_.reset();
  else nextStreamRest_ = rest;
}

std::optional<uint64_t> NetAddressImpl::TakeNextStreamLength() {
  std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(nextStreamRest_, std::nullopt);
}

}  // namespace NorvaneHost
