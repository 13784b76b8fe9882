// The host's address of one network device: makes its HTTP requests and SNMP
// connections, and keeps the idle HTTP channels so that connections to the
// device stay open between requests.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "curl_channel.h"
#include "norvane/transport.h"
#include "settings.h"
#include "snmp_answers.h"
#include "url.h"

namespace NorvaneHost {

class NetAddressImpl final : public Norvane::DisposableObject<Norvane::QxNetAddress> {
 public:
  // One reference for the caller; null for a null or empty host.
  static NetAddressImpl* Create(const char16_t* host);
  ~NetAddressImpl() override;

  // The name as given; GetHost is what the library probes and names in its
  // requests, so a host name is handed over as the address it resolved to.
  const char16_t* GetName() override { return hostText_.c_str(); }
  const char16_t* GetHost() override { return probeText_.c_str(); }
  // Why a host name did not resolve (getaddrinfo's text); null when it did or
  // when the host is an address literal.
  const char* ResolveError() const { return resolveError_.empty() ? nullptr : resolveError_.c_str(); }
  const char16_t* GetCommunityName() override;
  // Both make the same request class, which also offers the streaming entries.
  HRESULT CreateRequest(Norvane::HTTPRequest** request, uint32_t port) override;
  HRESULT CreateRequestEx(Norvane::HTTPRequest** request, uint32_t port) override;
  HRESULT GetMIBConnection(Norvane::MIBConnection** connection) override;
  HRESULT SetPortText(const char16_t* port) override;
  const char16_t* GetPortText() override;
  HRESULT SetSecure(bool secure) override;
  bool IsSecure() override;
  HRESULT SetTimeout(uint32_t milliseconds) override;
  uint32_t GetTimeout() override;
  const char* GetTypeName() override { return "NorvaneHost::NetAddressImpl"; }

  void SetHttpTimeouts(uint32_t connectMs, uint32_t readMs);
  void SetSnmpCommunity(std::string community);
  void SetSnmpVersion(uint32_t version);
  void SetSnmpPort(uint32_t port);
  void SetSnmpTimeout(uint32_t milliseconds, uint32_t retries);
  void SetSnmpUser(std::string user, uint32_t level, std::string context);
  void SetSnmpAuthentication(uint32_t protocol, Secret passphrase);
  void SetSnmpPrivacy(uint32_t protocol, Secret passphrase);

  // An idle channel (with its open connection) or a new one; null when libcurl
  // cannot make one.
  std::unique_ptr<CurlChannel> TakeChannel();
  void ReturnChannel(std::unique_ptr<CurlChannel> channel);

  // Authentication schemes the device asked for in its last challenge.
  void NoteAuthSchemes(long schemes);
  long KnownAuthSchemes();

  // The HTTP status with which the device refused a chunked request body; 0
  // while it took every one.
  void NoteChunkedRefusal(uint32_t status);
  uint32_t ChunkedRefusal();
  // The next streamed body goes with a Content-Length: the payload of its
  // first chunk plus `rest` bytes. Taken by the next stream that opens;
  // UINT64_MAX takes back a declaration no stream has taken.
  void SetNextStreamLength(uint64_t rest);
  std::optional<uint64_t> TakeNextStreamLength();

 private:
  explicit NetAddressImpl(std::u16string host);
  HRESULT MakeRequest(Norvane::HTTPRequest** request, uint32_t port);

  // Idle channels kept per device; more concurrent requests than this open
  // extra connections that close when they finish.
  static constexpr size_t kMaxIdleChannels = 4;

  const std::u16string hostText_;
  const std::optional<HostName> host_;
  std::u16string probeText_;
  std::string resolveError_;

  // What the agent said in the last second, for every connection of this address.
  const std::shared_ptr<SnmpAnswers> snmpAnswers_ = std::make_shared<SnmpAnswers>();

  std::mutex mutex_;  // guards everything below
  std::u16string portText_;
  std::u16string community16_;
  bool secure_ = false;
  HttpSettings http_;
  SnmpSettings snmp_;
  std::vector<std::unique_ptr<CurlChannel>> idle_;
  long authSchemes_ = 0;
  uint32_t chunkedRefusal_ = 0;
  std::optional<uint64_t> nextStreamRest_;
};

}  // namespace NorvaneHost
