// The IPP provider behind the exported IPPProvider interface. Creation is
// detection: a device that does not take a TCP connection on 631, or does not
// answer Get-Printer-Attributes, yields no provider. A created provider keeps
// one long-lived IPPOperations holding the printer attributes of that first
// answer and answers attribute queries from it, or from fresh requests.
//
// Ownership: the provider holds one reference on its Address for its whole
// life. The query operations are owned. A provider is used by one thread at a
// time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "ipp/ipp_operations.h"
#include "norvane/disposable.h"
#include "norvane/interfaces.h"
#include "norvane/transport.h"

namespace Norvane {

// Last-error codes of provider creation.
inline constexpr uint32_t kIppErrorOnlyPort80 = 0x20000001;      // answers on 80, not on 631
inline constexpr uint32_t kIppErrorNotReachable = 0x20000002;    // answers on neither
inline constexpr uint32_t kIppErrorShortResource = 0x20000003;   // resource path under 4 characters
inline constexpr uint32_t kIppErrorEmptyResource = 0x20000004;   // no resource path
inline constexpr uint32_t kIppErrorRequestRefused = 0x20000009;  // creation request answered 400, 404 or 405
inline constexpr uint32_t kErrorInvalidPort = 1796;              // a port other than 631 or 443 in the URI

// The flag word the data collection and CreateIPPProvider pass; it only matters
// to a secure provider.
inline constexpr uint32_t kIppDefaultSecurityFlags = 0x803100;

// How long the TCP connect probe waits for an answer.
inline constexpr uint32_t kDeviceProbeTimeoutMs = 5000;

enum class IppUriScheme { kSecureIpp, kPlainIpp, kHttp, kOther };

// The parts of a printer URI after URL cracking.
struct CrackedUri {
  std::u16string scheme;
  std::u16string host;
  uint32_t port = 0;  // 0 when the URI names none and the scheme has no default
  std::u16string path;   // path with any query text
};

class IPPProviderImpl : public DisposableObject<IPPProvider> {
 public:
  // A provider on the device at `address` whose printer resource is
  // `resourceURI` (such as "/ipp/print"); one reference for the caller, or null
  // with the thread's last error set.
  static IPPProviderImpl* Create(Address* address, const char* resourceURI, bool secure, uint32_t securityFlags);
  // The same from a full printer URI (ipp://host[:port]/path or ipps://...).
  static IPPProviderImpl* Create2(Address* address, const char16_t* printerURI, uint32_t securityFlags);

  // Value queries. `name` may hold "_OR_" alternatives; the last alternative may
  // be a collection query such as media-col-database[0].media-size.x-dimension.
  HRESULT GetValue(const char* name, VARIANT* value) override;
  HRESULT GetIPPValue(const char* name, uint32_t getJob, VARIANT* value, const char* jobURI,
                      const char* resourceURI, uint32_t securityFlags, int32_t isCollectionQuery,
                      const char* collectionQuery) override;
  HRESULT SetTimeValues(uint32_t first, uint32_t second, uint32_t third) override;

  // Job operations (ipp_provider_jobs.cpp).
  HRESULT PrintUri(IPPRequestBase* attributes, IPPResponseBase* response) override;
  HRESULT SendURI(IPPRequestBase* attributes, IPPResponseBase* response) override;
  HRESULT CreateJob(IPPRequestBase* attributes, IPPResponseBase* response) override;
  HRESULT CancelJob(IPPRequestBase* attributes, IPPResponseBase* response) override;
  HRESULT PrintJob(IPPRequestBase* attributes, IPPResponseBase* response, const uint8_t* data, int32_t length,
                   bool chunked) override;
  HRESULT PrintJobWrite(IPPRequestBase* attributes, IPPResponseBase* response, const uint8_t* data,
                        int32_t length) override;
  HRESULT ValidateCredentials(IPPRequestBase* attributes, IPPResponseBase* response) override;

  // Stores the resource path and, when given, the full printer URI and whether
  // it is secure. False for an empty resource (last error 87 or 0x20000004) or a
  // null printer URI (last error 87; the resource is kept).
  bool SetPrinterURIs(const char16_t* resourceURI, const char16_t* printerURI);

  // Scheme class by case-sensitive prefix: "ipps", then "ipp", then "http".
  static IppUriScheme GetURIScheme(const char16_t* uri);
  // A port name such as USB001 (USB and three digits, not 000).
  static bool IsUSBPort(const char16_t* text);
  // Cuts ":port" out of a URI: ipps://host:631/ipp/print gives "631" and
  // ipps://host/ipp/print. Without a port, `port` is empty and `rest` the URI.
  static void SplitPortFromURI(std::u16string_view uri, std::u16string* port, std::u16string* rest);
  // URL cracking. 0 and the parts, or false for text that is not a URL.
  static bool CrackUrl(std::u16string_view uri, CrackedUri* parts);
  // The resource and full URI of a printer URI without its port text; 0, or
  // the last-error code creation reports (87, 1796, 0x20000004, 0x20000003).
  static uint32_t CrackPrinterURI(std::u16string_view uri, std::u16string* resource, std::u16string* full);
  // TCP connect probe of an IPv4 or IPv6 address text. IPv4 probes port 80 when
  // `port` is "80" and 631 otherwise; IPv6 probes the port text. `error`
  // receives the socket error of a failed probe.
  static bool DeviceExists(const char16_t* host, const char16_t* port, int* error = nullptr,
                           uint32_t timeoutMs = kDeviceProbeTimeoutMs);

  const std::u16string& GetResourceURI() const { return resourceURI_; }
  const std::u16string& GetPrinterURI() const { return printerURI_; }
  bool IsSecure() const { return secure_; }
  uint32_t GetSecurityFlags() const { return securityFlags_; }
  const IPPOperations& GetQueryOperations() const { return *queryOperations_; }
  uint32_t GetTimeValue(int index) const { return timeValues_[index]; }

 private:
  IPPProviderImpl(Address* address, std::unique_ptr<IPPOperations> queryOperations);
  ~IPPProviderImpl() override;

  Address* address_;
  // The attributes of the creation request, and the collection records of
  // earlier collection queries. Never refreshed by GetValue.
  std::unique_ptr<IPPOperations> queryOperations_;
  // Stored for the host; the library does not use them.
  uint32_t timeValues_[3] = {30000, 30000, 30000};
  std::u16string resourceURI_;
  std::u16string printerURI_;
  bool secure_ = false;
  uint32_t securityFlags_ = 0;
};

}  // namespace Norvane
