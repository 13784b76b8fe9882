// The IPP provider behind the exported IPPProvider interface. Creation is
// detection: a device that does not take a TCP connection on 631, or does not
// answer Get-Printer-Attributes, yields no provider. A created provider keeps
// one long-lived IPPOperations holding the printer attributes of that first
// answer and answers attribute queries from it, or from fresh requests.
//
// Ownership: the provider holds one reference on its Address for its whole
// life. The query and job operations are owned. A provider is used by one
// thread at a time, except that a chunked print runs two polling threads of
// its own (ipp_status_polling.cpp) which share only the flags and events below
// with the caller's thread; any thread may release the provider.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "ipp/ipp_operations.h"
#include "ipp/ipp_print_ready.h"
#include "norvane/api.h"
#include "norvane/disposable.h"
#include "norvane/interfaces.h"
#include "norvane/transport.h"
#include "platform/sync.h"
#include "support/ref.h"

namespace Norvane {

// Last-error codes of provider creation.
inline constexpr uint32_t kIppErrorOnlyPort80 = 0x20000001;      // answers on 80, not on 631
inline constexpr uint32_t kIppErrorNotReachable = 0x20000002;    // answers on neither
inline constexpr uint32_t kIppErrorShortResource = 0x20000003;   // resource path under 4 characters
inline constexpr uint32_t kIppErrorEmptyResource = 0x20000004;   // no resource path
inline constexpr uint32_t kIppErrorRequestRefused = 0x20000009;  // creation request answered 400, 404 or 405
inline constexpr uint32_t kErrorInvalidPort = 1796;              // a port other than 631 or 443 in the URI

// Results and last-error codes of the job operations.
inline constexpr HRESULT kIppResultUnauthorized = 1026;           // stream answered HTTP 401
inline constexpr uint32_t kErrorNoData = 1462;                    // PrintJob without data
inline constexpr uint32_t kErrorJobSetup = 1280;                  // job set-up or credential decode failed
inline constexpr uint32_t kIppErrorStateUnreadable = 0x20000010;  // printer state unreadable while waiting
inline constexpr uint32_t kErrorJobNotFound = 1291;               // Get-Jobs lost the streamed job
inline constexpr uint32_t kErrorNotSecure = 1025;                 // credentials over a plain printer URI
inline constexpr uint32_t kErrorCredentialsRefused = 401;

// Answers of CheckForPrinterReadyState.
enum PrinterReadiness : int { kPrinterNotReady = 0, kPrinterReady = 1, kPrinterStateUnknown = 2 };

// Waits of a chunked print. Tests shorten them; hosts never change them.
struct PrintTimings {
  uint32_t printerPollMs = 5000;     // between printer-state queries while streaming
  uint32_t jobPollMs = 1000;         // between job-state queries while streaming
  uint32_t readyRetryMs = 2000;      // between readiness checks before the stream
  uint32_t jobLookupRetryMs = 2000;  // before asking Get-Jobs again for the new job
  // One-body Print-Job restarts while the printer answers server-error-busy;
  // after that many the busy answer is the result.
  uint32_t maxBusyRestarts = 10;
};

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
  uint32_t port = 0;    // 0 when the URI names none and the scheme has no default
  std::u16string path;  // path with any query text
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
  HRESULT GetIPPValue(const char* name, uint32_t getJob, VARIANT* value, const char* jobURI, const char* resourceURI,
                      uint32_t securityFlags, int32_t isCollectionQuery, const char* collectionQuery) override;
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
  // Finds the caller's newest job: 0 with `response` filled, 1 when the printer
  // lists no value for it, 0x80004005 on failure. `completed` asks about
  // finished jobs (their job-state) instead of jobs in progress (their reasons).
  HRESULT GetJobs(IPPRequestBase* attributes, IPPResponseBase* response, bool completed);
  // Cancel-Job for the attributes' job URI alone (CancelIPPJobByURI).
  HRESULT CancelJobByURI(IPPRequestBase* attributes, IPPResponseBase* response);
  // One Get-Jobs request, each name's values over all listed jobs (GetIPPJobValues).
  HRESULT GetJobValues(const char* user, bool completed, const char* const* names, VARIANT* values, uint32_t count);

  // Status polling while a chunked print streams (ipp_status_polling.cpp).
  // Lock A guards writes of the print-status flag, lock B the printer-status
  // polling flag; neither is held while the other is taken.
  void SetPrintStatus();
  uint32_t GetPrintStatus() const { return printStatus_.load(); }
  uint32_t GetbPrinteStatusThreadPoll();
  void SetPrintReadyStatus();
  std::shared_ptr<ManualResetEvent> GetPrintStatusEventHandle();
  std::shared_ptr<PrintReadySignal> GetPrintReadyStatusEventHandle();
  // The decimal printer-state and the comma-joined printer-state-reasons;
  // 0, or a negative status when the query failed.
  HRESULT RetrievePrinterState(std::string* state, std::string* reasons);
  PrinterReadiness CheckForPrinterReadyState();
  // One poll of the streamed job: 1 while it goes on, 0 when it ended (the
  // print-status flag is then raised), 0x80004005 when the query failed.
  HRESULT GetJobs(bool completed);
  // Stops both polling threads and waits for them; afterwards the print-status
  // flag is raised and both events are gone.
  void StopAllThreadsRunning();
  // The same for threads an earlier stream left running, without raising the
  // flags that a new stream on this provider reads.
  void StopLeftoverThreads();
  // Thread bodies; each returns its exit code (0, or 1 without what it watches).
  static uint32_t GetPrinterStatusPollingThread(IPPProviderImpl* provider);
  static uint32_t GetJobsPollingThread(IPPProviderImpl* provider);
  bool IsPolling();

  void SetPrintTimings(const PrintTimings& timings) { timings_ = timings; }
  void SetPollObserver(NorvanePollObserver observer, void* context);

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
  // receives the socket error of a failed probe. `exactPort` connects to the
  // port text as it is; otherwise any text but "80" means 631.
  static bool DeviceExists(const char16_t* host, const char16_t* port, int* error = nullptr,
                           uint32_t timeoutMs = kDeviceProbeTimeoutMs, bool exactPort = false);

  const std::u16string& GetResourceURI() const { return resourceURI_; }
  const std::u16string& GetPrinterURI() const { return printerURI_; }
  bool IsSecure() const { return secure_; }
  uint32_t GetSecurityFlags() const { return securityFlags_; }
  const IPPOperations& GetQueryOperations() const { return *queryOperations_; }
  uint32_t GetTimeValue(int index) const { return timeValues_[index]; }

 private:
  IPPProviderImpl(Address* address, std::unique_ptr<IPPOperations> queryOperations);
  ~IPPProviderImpl() override;

  // One-shot job request on fresh operations (Print-URI, Send-URI,
  // Create-Job, Cancel-Job); 0 or 0x80004005.
  HRESULT SendJobRequest(uint32_t operation, IPPRequestBase* attributes, IPPResponseBase* response, bool secure,
                         uint32_t securityFlags);
  // Fresh operations for a Get-Jobs of `user`.
  std::unique_ptr<IPPOperations> MakeGetJobsOperations(bool completed, const char* user);
  // PrintJob's steps for one attempt, and the job lookup after a stream opened.
  HRESULT StartPrintJob(IPPRequestBase* attributes, const uint8_t* data, int32_t length);
  HRESULT WaitForReadyPrinter();
  HRESULT FinishOneBodyPrintJob(IPPResponseBase* response, HRESULT sent, bool* restart);
  HRESULT FindStreamedJob(IPPRequestBase* attributes, IPPResponseBase* response);
  void StartPollingThreads(bool jobFound);
  // Joins both threads and ends the events; `raiseFlags` also ends the
  // printer-status polling and marks the job as ended (what a stop means).
  void StopThreads(bool raiseFlags);
  // The user name the job polling thread asks Get-Jobs about; a one-body
  // print stores it while a stream's thread may be reading it.
  void StoreJobUser(const char* user);
  std::string JobUser();
  // The outcome of a stream that failed or ended unread: what Get-Jobs says
  // about the job, S_DEVICECANCELED when it still finds it.
  HRESULT AnswerFromGetJobs(IPPRequestBase* attributes, IPPResponseBase* response);
  void EndJobOperations();
  bool IsSecureIpp() const { return GetURIScheme(printerURI_.c_str()) == IppUriScheme::kSecureIpp; }

  QxUtils::Ref<Address> address_;
  // The attributes of the creation request, and the collection records of
  // earlier collection queries. Never refreshed by GetValue.
  std::unique_ptr<IPPOperations> queryOperations_;
  // Stored for the host; the library does not use them.
  uint32_t timeValues_[3] = {30000, 30000, 30000};
  std::u16string resourceURI_;
  std::u16string printerURI_;
  bool secure_ = false;
  uint32_t securityFlags_ = 0;

  // The operations of the job being printed, from PrintJob to the end of the
  // stream; the security flags the polling threads borrow from them.
  std::unique_ptr<IPPOperations> jobOperations_;
  std::atomic<uint32_t> jobSecurityFlags_{0};
  std::atomic<bool> hasJobOperations_{false};
  HTTPResponse* streamResponse_ = nullptr;  // owned by the job operations
  std::atomic<uint32_t> cancelFlag_{0};
  ManualResetEvent cancelSignal_;  // wakes the wait for a ready printer
  PrintTimings timings_;

  // Shared with the polling threads.
  CriticalSection lockA_;
  CriticalSection lockB_;
  std::atomic<uint32_t> printStatus_{0};  // written under lock A
  uint32_t printerStatusThreadPoll_ = 1;  // under lock B
  std::mutex eventsMutex_;                // guards the two event fields
  std::shared_ptr<ManualResetEvent> printStatusEvent_;
  std::shared_ptr<PrintReadySignal> printReadyEvent_;
  ManualResetEvent stopThreads_;  // ends the printer-status thread's sleep at once
  // Held while the threads are started or stopped, and guards the two thread
  // objects: CancelJob may stop them from another thread.
  std::mutex jobMutex_;
  std::thread printerStatusThread_;
  std::thread jobThread_;
  std::mutex jobUserMutex_;  // the requested user name of the query operations

  // Called outside its lock (an observer may clear itself); clearing waits
  // until no call is in progress on another thread.
  void NotifyPollObserver(int kind, const std::string& state, const std::string& reasons);
  std::mutex observerMutex_;
  std::condition_variable observerIdle_;
  int observerCalls_ = 0;  // calls in progress
  NorvanePollObserver observer_ = nullptr;
  void* observerContext_ = nullptr;
};

}  // namespace Norvane
