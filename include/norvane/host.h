// The reference host transport (libnorvane-host): a real Address for a network
// printer, so the library can talk to real devices. Every HTTP(S) request goes
// through libcurl and every SNMP v1/v2c/v3 request through net-snmp; the host
// writes and parses no protocol itself. Link with -lnorvane-host -lnorvane
// (pkg-config norvane-host). This header is not part of <norvane/norvane.h>: a
// host that brings its own transport never includes it.
//
// Objects follow the library's reference counting: CreateNetAddress returns one
// reference owned by the caller, released with Dispose(); requests and
// connections made by the address keep their own reference on it.
//
// Behaviour of the address's requests:
//  - URL: http://HOST:PORT/RESOURCE with the port the library asks for; an IPv6
//    literal host is written in brackets. A resource given as an absolute URL
//    (scheme://authority/path) contributes only its path and query. The path
//    goes on the wire as given: dot segments ("/a/../b") are not resolved.
//  - The port text (SetPortText) replaces the port of IPP requests, i.e. when the
//    library asks for 631 or 443; other ports are used as asked.
//  - https is used for port 443, and for IPP requests (631 or 443 asked) while
//    the address is secure (SetSecure). XML and web-service ports stay plain.
//  - Credentials answer Basic and Digest challenges. "Expect: 100-continue" is
//    never sent; connections are kept alive and reused between requests.
//  - A streamed request (QxHTTPRequestEx::Open then WriteChunk) whose headers
//    carry "Transfer-Encoding: chunked" receives its body already framed in
//    chunks; the host removes that framing and libcurl frames the payload again
//    on the wire, so the peer sees exactly one valid chunked body. Without that
//    header the written bytes are the body itself. At most one chunk is held in
//    memory whatever the document size.
//  - HTTPRequest::GetErrorCode answers the libcurl code (CURLcode) of the last
//    exchange; NetAddressErrorText describes it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "norvane/transport.h"

// TLS checks the host may relax with HTTPRequest::SetSecurityFlags. The values
// are those hosts written for the original platform already pass.
// libcurl cannot ignore only a certificate's dates, so that flag, like an unknown
// issuer, turns chain verification off.
#define NORVANE_SECURITY_IGNORE_UNKNOWN_CA 0x00000100u
#define NORVANE_SECURITY_IGNORE_WRONG_USAGE 0x00000200u
#define NORVANE_SECURITY_IGNORE_CERT_CN_INVALID 0x00001000u
#define NORVANE_SECURITY_IGNORE_CERT_DATE_INVALID 0x00002000u

// SNMP versions for NetAddressSetSnmpVersion.
#define NORVANE_SNMP_VERSION_1 1u
#define NORVANE_SNMP_VERSION_2C 2u
#define NORVANE_SNMP_VERSION_3 3u

// SNMPv3 security levels for NetAddressSetSnmpUser.
#define NORVANE_SNMP_NO_AUTH_NO_PRIV 1u
#define NORVANE_SNMP_AUTH_NO_PRIV 2u
#define NORVANE_SNMP_AUTH_PRIV 3u
// SNMPv3 authentication protocols (HMAC with these digests).
#define NORVANE_SNMP_AUTH_SHA1 1u
#define NORVANE_SNMP_AUTH_SHA224 2u
#define NORVANE_SNMP_AUTH_SHA256 3u
#define NORVANE_SNMP_AUTH_SHA384 4u
#define NORVANE_SNMP_AUTH_SHA512 5u
// SNMPv3 privacy protocols (AES in CFB mode; 192 and 256 bits with the key
// extension most agents use).
#define NORVANE_SNMP_PRIV_AES128 1u
#define NORVANE_SNMP_PRIV_AES192 2u
#define NORVANE_SNMP_PRIV_AES256 3u

extern "C" {

// A new address for a host name, an IPv4 address or an IPv6 address (with or
// without brackets). Null when host is null or empty.
NORVANE_API Norvane::QxNetAddress* CreateNetAddress(const char16_t* host);

// The setters below change what later requests and connections of an address
// use; requests and connections already made keep their settings. Each returns
// S_OK, or E_INVALIDARG for a null or foreign address or an out-of-range value.
// The address must be one made by CreateNetAddress.

// SNMP community (default "public"); null or empty restores the default.
NORVANE_API HRESULT NetAddressSetSnmpCommunity(Norvane::QxNetAddress* address, const char16_t* community);
// NORVANE_SNMP_VERSION_1, NORVANE_SNMP_VERSION_2C (the default) or
// NORVANE_SNMP_VERSION_3, which uses the user below instead of the community.
NORVANE_API HRESULT NetAddressSetSnmpVersion(Norvane::QxNetAddress* address, uint32_t version);
// SNMPv3: the user, its security level (NORVANE_SNMP_NO_AUTH_NO_PRIV, _AUTH_NO_PRIV,
// _AUTH_PRIV) and the context name (null or empty: the default context); also
// selects NORVANE_SNMP_VERSION_3. The agent's engine is discovered by a
// connection's first request. A connection whose level needs a protocol not set below
// is not made (GetMIBConnection fails with E_INVALIDARG).
NORVANE_API HRESULT NetAddressSetSnmpUser(Norvane::QxNetAddress* address, const char16_t* user, uint32_t securityLevel,
                                          const char16_t* context);
// SNMPv3 authentication protocol (NORVANE_SNMP_AUTH_*) and pass phrase, and
// privacy protocol (NORVANE_SNMP_PRIV_*) and pass phrase; each pass phrase has
// at least 8 characters. Pass phrases are never logged.
NORVANE_API HRESULT NetAddressSetSnmpAuthentication(Norvane::QxNetAddress* address, uint32_t protocol,
                                                    const char16_t* passphrase);
NORVANE_API HRESULT NetAddressSetSnmpPrivacy(Norvane::QxNetAddress* address, uint32_t protocol,
                                             const char16_t* passphrase);
// UDP port of the agent (default 161).
NORVANE_API HRESULT NetAddressSetSnmpPort(Norvane::QxNetAddress* address, uint32_t port);
// Wait for one SNMP answer and the number of further tries (defaults 2000 ms, 1).
NORVANE_API HRESULT NetAddressSetSnmpTimeout(Norvane::QxNetAddress* address, uint32_t milliseconds, uint32_t retries);
// HTTP connect time-out and read time-out (defaults 5000 ms and 30000 ms). The
// read time-out bounds any wait in which no byte moves in either direction; 0
// keeps the current value.
NORVANE_API HRESULT NetAddressSetHttpTimeouts(Norvane::QxNetAddress* address, uint32_t connectMilliseconds,
                                              uint32_t readMilliseconds);

// Text describing an HTTPRequest::GetErrorCode value (static storage).
NORVANE_API const char* NetAddressErrorText(uint32_t code);

// Why the address's host name did not resolve, or null when it resolved or is an
// address literal. A host name is resolved once, when the address is made: the
// library's connect probe and its requests then use that address (GetHost),
// while GetName keeps the name as given.
NORVANE_API const char* NetAddressResolveError(Norvane::QxNetAddress* address);

// Tracing, for finding out what the host said to a device and what came back.
// At NORVANE_HOST_TRACE_EXCHANGES each HTTP exchange gives one line (method,
// URL, status, body bytes sent and received, whether the connection was new,
// time) and so does each SNMP exchange (PDU type, agent, OIDs asked, the type
// of each value answered, error status, time); NORVANE_HOST_TRACE_WIRE adds
// libcurl's account of each HTTP exchange (header lines both ways, connection
// events, sizes of body pieces; never body bytes). Credentials never appear:
// Authorization values and the user information of URLs are masked, and SNMP
// communities and pass phrases are not traced at all.
#define NORVANE_HOST_TRACE_OFF 0u
#define NORVANE_HOST_TRACE_EXCHANGES 1u
#define NORVANE_HOST_TRACE_WIRE 2u

// Receives one trace line (UTF-8, no line break) on the thread that made the
// exchange; calls never overlap. It must not call into the host.
typedef void (*NorvaneHostTraceSink)(void* context, const char* line);

// Sets the trace level for the whole process, and where lines go: `sink` with
// `context`, or standard error (each line prefixed "norvane-host: ") when
// `sink` is null. Until a host calls this, the environment variable
// NORVANE_HOST_TRACE sets the level (1: exchanges, 2: wire) with lines on
// standard error. E_INVALIDARG for an unknown level.
NORVANE_API HRESULT NorvaneHostSetTrace(uint32_t level, NorvaneHostTraceSink sink, void* context);

// Printers in the field (off by default, which keeps the library's IPP exactly
// as specified): answers of IPP/1.0 and 1.1 are read; a request a printer refuses
// as IPP/2.0 (server-error-version-not-supported, or the connection closed without
// an answer) is sent again as IPP/1.1, and later requests to it go as 1.1; the
// text of textWithLanguage and nameWithLanguage values is kept.
NORVANE_API HRESULT NetAddressSetIppFieldCompatibility(Norvane::QxNetAddress* address, int on);
// The IPP version (major << 8 | minor) of the device's last answer, read or
// refused; 0 before any. Says why a printer was refused in the strict mode.
NORVANE_API uint32_t NetAddressIppAnsweredVersion(Norvane::QxNetAddress* address);

// Printers that refuse a chunked request body answer a print stream with 411
// (Length Required), or with 400 or 501 and no IPP answer while the body is
// still coming. The host then fails the stream's next chunk write, so that the
// library's PrintJob or PrintJobWrite fails instead of sending the rest of the
// document nowhere, and remembers the refusal: its HTTP status, 0 while the
// device took every chunked body.
NORVANE_API uint32_t NetAddressChunkedRefusal(Norvane::QxNetAddress* address);
// The next print stream opened on the address (Open, then WriteChunk) goes with
// a Content-Length instead of chunked: the payload of its first chunk (the IPP
// request and the document's first block) plus `rest` bytes, which its later
// chunks must carry exactly (a write past them fails, and so does a stream
// that ends short). Memory stays at one block, as for a chunked stream.
// UINT64_MAX takes back a declaration that no stream has taken.
NORVANE_API HRESULT NetAddressSetNextStreamLength(Norvane::QxNetAddress* address, uint64_t rest);

// A few words (static storage, no final period) for a status the library or a
// single request returned, and for a thread last-error code the library set.
NORVANE_API const char* NorvaneStatusText(HRESULT status);
NORVANE_API const char* NorvaneLastErrorText(uint32_t code);
}

namespace NorvaneHost {
// UTF-8 and UTF-16 as the interface uses them; invalid input becomes U+FFFD.
NORVANE_API std::string ToUtf8(std::u16string_view text);
NORVANE_API std::u16string ToUtf16(std::string_view text);
}  // namespace NorvaneHost
