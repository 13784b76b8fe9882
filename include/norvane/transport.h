// The host's transport. The library opens no HTTP connection and speaks no SNMP:
// a host implements these interfaces and hands the library one Address per device,
// from which every request and connection is obtained. Everything the library
// obtains it disposes of; a response belongs to its request.
//
// Entries marked "not called" are part of the host contract but the library never
// calls them; their defaults answer E_NOTIMPL (or null) so a host may leave them.
#pragma once

#include <atomic>
#include <cstdint>

#include "norvane/disposable.h"
#include "norvane/platform.h"

namespace Norvane {

class HTTPRequest;
class HTTPResponse;
class MIBConnection;
class Stream;
class Notifier;

class NORVANE_API HTTPResponse : public IDisposable {
 public:
  virtual HRESULT GetStatusText(const char16_t** text);  // not called
  virtual uint32_t GetStatus() = 0;
  virtual const char16_t* GetContentType();              // not called
  virtual HRESULT GetAllHeaders(const char16_t** text);  // not called
  virtual uint32_t GetBodyLength() = 0;
  // Body bytes, null when there is none; a text body is followed by a zero byte
  // that GetBodyLength does not count.
  virtual const uint8_t* GetBody() = 0;
  // Header value, or null when absent; valid while the response lives.
  virtual const char16_t* GetHeader(const char16_t* name) = 0;
};

class NORVANE_API HTTPRequest : public IDisposable {
 public:
  virtual const char16_t* GetURL();  // not called
  virtual HRESULT SetResource(const char16_t* path) = 0;
  virtual HRESULT SetUserName(const char16_t* name) = 0;
  virtual HRESULT SetPassword(const char16_t* password) = 0;
  // "GET" or "POST"; a request whose method is never set is a GET.
  virtual HRESULT SetMethod(const char16_t* method) = 0;
  virtual HRESULT AddHeader(const char16_t* name, const char16_t* value) = 0;
  virtual HRESULT SetContentType(const char16_t* contentType) = 0;
  virtual HRESULT SetBody(const uint8_t* body, uint32_t length) = 0;
  // Sends the request (or, after a streamed body, finishes it) and hands back
  // the response, which stays owned by this request.
  virtual HRESULT Send(HTTPResponse** response) = 0;
  virtual HRESULT SetSecurityFlags(uint32_t flags) = 0;
  // Transport error of the last exchange (0 when there was none).
  virtual uint32_t GetErrorCode() = 0;
  virtual HRESULT SetTimeout(uint32_t milliseconds);  // not called
  virtual HRESULT Cancel();                           // not called
};

// A request whose body the library streams. The library frames the chunks of a
// chunked body itself ("%X\r\n", data, "\r\n"; the last chunk "0\r\n\r\n"); the
// host passes them on and never buffers the whole document. After the last
// chunk the library calls Send to read the response.
class NORVANE_API QxHTTPRequestEx : public HTTPRequest {
 public:
  // Sends the whole body at once; Send then reads the response.
  virtual HRESULT SendBody(const uint8_t* body, uint32_t length) = 0;
  // Starts the request with the headers set so far; context is opaque to the host.
  virtual HRESULT Open(uint64_t context) = 0;
  virtual HRESULT WriteChunk(const uint8_t* bytes, uint32_t length, uint64_t context) = 0;
};

class NORVANE_API MIBConnection : public IDisposable {
 public:
  virtual HRESULT Open();  // not called
  virtual HRESULT GetValue(const char16_t* oid, VARIANT* value) = 0;
  virtual HRESULT GetMultipleValues(const char16_t** oids, VARIANT* values, uint32_t count) = 0;
  // Writes the OID following `oid` into `nextOid` (size in characters, with the
  // terminator) and its value; E_OUTOFMEMORY when the buffer is too small.
  virtual HRESULT GetNextOidAndValue(const char16_t* oid, char16_t* nextOid, uint32_t nextOidSize, VARIANT* value) = 0;
  virtual HRESULT SetValue(const char16_t* oid, const VARIANT* value) = 0;
  virtual HRESULT SetCommunity(const char16_t* community);  // not called
  virtual HRESULT Close();                                  // not called
};

class NORVANE_API Stream : public IDisposable {
 public:
  virtual HRESULT Open(const char16_t* name);
  virtual HRESULT Close();
  virtual HRESULT Read(uint8_t* buffer, uint32_t size, uint32_t* read);
  virtual HRESULT Write(const uint8_t* buffer, uint32_t size, uint32_t* written);
  virtual HRESULT Flush();
  virtual HRESULT Seek(int64_t offset, uint32_t origin, uint64_t* position);
  virtual HRESULT GetSize(uint64_t* size);
  virtual HRESULT SetSize(uint64_t size);
  virtual HRESULT GetStatus(uint32_t* status);
  virtual HRESULT SetTimeout(uint32_t milliseconds);
  virtual HRESULT Cancel();
  virtual HRESULT GetErrorCode(uint32_t* code);
  virtual HRESULT Reset();
};

class NORVANE_API Notifier : public IDisposable {
 public:
  virtual HRESULT Register(const char16_t* event, uint64_t context);
  virtual HRESULT Unregister(const char16_t* event);
  virtual HRESULT Notify(const char16_t* event, const VARIANT* value);
  virtual HRESULT Wait(uint32_t milliseconds);
  virtual HRESULT Cancel();
  virtual HRESULT GetErrorCode(uint32_t* code);
};

class NORVANE_API Address : public IDisposable {
 public:
  virtual const char16_t* GetName();  // not called
  // Host name, IP address text, or a port name such as USB001.
  virtual const char16_t* GetHost() = 0;
  virtual const char16_t* GetMACAddress();     // not called
  virtual const char16_t* GetCommunityName();  // not called
  virtual HRESULT CreateRequest(HTTPRequest** request, uint32_t port) = 0;
  virtual HRESULT CreateRequestEx(HTTPRequest** request, uint32_t port) = 0;
  virtual HRESULT GetMIBConnection(MIBConnection** connection) = 0;
  virtual HRESULT CreateStream(Stream** stream);        // not called
  virtual HRESULT CreateNotifier(Notifier** notifier);  // not called
  virtual HRESULT Ping();                               // not called
  // Overrides the port of IPP requests; empty or null restores the default.
  virtual HRESULT SetPortText(const char16_t* port) = 0;
  virtual const char16_t* GetPortText() = 0;
  virtual HRESULT SetSecure(bool secure) = 0;
  virtual bool IsSecure();                            // not called
  virtual HRESULT SetTimeout(uint32_t milliseconds);  // not called
  virtual uint32_t GetTimeout();                      // not called
};

// Host-side address class; the data collection looks for the web-service port
// flag through a run-time type test.
class NORVANE_API QxNetAddress : public Address {
 public:
  static constexpr uint32_t kWebServicePortAvailable = 1;

  uint32_t GetWebServicePortFlag() const { return webServicePortFlag_; }
  void SetWebServicePortFlag(uint32_t flag) { webServicePortFlag_ = flag; }

  // Off unless the host turns it on: the IPP provider's connect probe knocks on
  // 631 (then 80) whatever port its requests go to. On, it knocks on the port
  // text instead, so that a printer listening on another port only is found.
  bool GetProbePortTextFlag() const { return probePortText_.load(); }
  void SetProbePortTextFlag(bool on) { probePortText_.store(on); }

  // Printers in the field, off unless the host asks: IPP/1.x answers are read,
  // a request refused as IPP/2.0 (server-error-version-not-supported, or the
  // connection closed without an answer) is sent again as IPP/1.1, and
  // language-tagged texts keep their text.
  bool GetIppFieldCompatibility() const { return ippFieldCompatibility_.load(); }
  void SetIppFieldCompatibility(bool on) { ippFieldCompatibility_.store(on); }
  // The IPP version (major << 8 | minor) requests to this device are sent with
  // once a fallback settled on one; 0 until then (IPP/2.0).
  uint16_t GetIppRequestVersion() const { return ippRequestVersion_.load(); }
  void SetIppRequestVersion(uint16_t version) { ippRequestVersion_.store(version); }
  // The version of the device's last IPP answer, whether or not it was read.
  uint16_t GetIppAnsweredVersion() const { return ippAnsweredVersion_.load(); }
  void SetIppAnsweredVersion(uint16_t version) { ippAnsweredVersion_.store(version); }

 protected:
  uint32_t webServicePortFlag_ = 0;
  std::atomic<bool> probePortText_{false};
  std::atomic<bool> ippFieldCompatibility_{false};
  std::atomic<uint16_t> ippRequestVersion_{0};
  std::atomic<uint16_t> ippAnsweredVersion_{0};
};

}  // namespace Norvane
