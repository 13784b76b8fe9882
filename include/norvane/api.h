// The flat functions of the library, exported under their plain names.
//
// Objects returned carry one reference owned by the caller (release with
// Dispose). The caller's Address, cache and data-map collection stay the
// caller's: the library takes its own references on what it keeps.
#pragma once

#include <cstdint>
#include <string>

#include "norvane/interfaces.h"
#include "norvane/platform.h"
#include "norvane/transport.h"

typedef struct _xmlNode xmlNode;

namespace Norvane {
class DataMapSpecCollection;
}

extern "C" {

// Data collection. On success the out argument receives the collection; on
// failure it is not written. cache may be null.
NORVANE_API HRESULT CreateDataCollectionFromFile(Norvane::Address* address, const char16_t* path,
                                                 Norvane::DataCollection** collection, Norvane::ICacheProvider* cache);
NORVANE_API HRESULT CreateDataCollectionFromXML(Norvane::Address* address, const char16_t* xml,
                                                Norvane::DataCollection** collection, Norvane::ICacheProvider* cache);
// node: an element of a parsed data-map document, or the xmlDoc* itself.
NORVANE_API HRESULT CreateDataCollectionFromDOM(Norvane::Address* address, xmlNode* node,
                                                Norvane::DataCollection** collection, Norvane::ICacheProvider* cache);
NORVANE_API HRESULT CreateDataCollectionFromDataMapSpecsCollection(Norvane::Address* address,
                                                                   Norvane::DataMapSpecCollection* specs,
                                                                   Norvane::DataCollection** collection,
                                                                   Norvane::ICacheProvider* cache);

// One read or write without keeping a collection. Results: 0, 1, a negative
// code, or an error code from 102 to 119.
NORVANE_API HRESULT GetValueFromSingleRequest(Norvane::Address* address, const char16_t* xml, VARIANT* value);
NORVANE_API HRESULT SetValueFromSingleRequest(Norvane::Address* address, const char16_t* xml, VARIANT* value);

// Caches.
NORVANE_API Norvane::ICacheProvider* CreateRegCacheProvider(const char16_t* keyPath);
NORVANE_API Norvane::ICacheProvider* CreatePrintDataCacheProvider(uintptr_t printerHandle);

// Providers. The IPP factories set the thread's last error on failure (87 for
// an argument or a printer URI of the wrong scheme).
NORVANE_API Norvane::IPPProvider* CreateIPPProvider(Norvane::Address* address, const char* resourceURI);
NORVANE_API Norvane::IPPProvider* CreateIPPPrintProvider(Norvane::Address* address, const char16_t* printerURI);
NORVANE_API Norvane::IPPProvider* CreateSecureIPPPrintProvider(Norvane::Address* address, const char16_t* printerURI,
                                                               uint32_t securityFlags);
NORVANE_API Norvane::IPPRequestBase* CreateIPPRequest(void);
NORVANE_API Norvane::IPPResponseBase* CreateIPPResponse(void);
NORVANE_API Norvane::VEXAProvider* CreateVEXAProvider(Norvane::Address* address);
NORVANE_API Norvane::OIDProvider* CreateOIDProvider(Norvane::Address* address);
NORVANE_API Norvane::WSProvider* CreateWSProvider(Norvane::Address* address);

// Fetches the printer's localised strings for a language. localeStrings is
// written only on success.
NORVANE_API HRESULT GetDeviceLocaleStrings(Norvane::Address* address, std::u16string requestedLocale,
                                           std::u16string& localeStrings);

// What the print polling threads of a provider see while a chunked job
// streams, for a host that shows it: called on a polling thread after each
// answer with kind 0 for the printer (printer-state, printer-state-reasons),
// 1 for the caller's jobs not yet completed and 2 for its completed jobs
// (job-state, job-state-reasons; several jobs give comma lists, a text the
// printer left out is empty). Null clears it; once this returns, the old
// observer is not called again (it waits for calls in progress on other
// threads). The observer itself may replace or clear it, and must return
// quickly.
typedef void (*NorvanePollObserver)(void* context, int kind, const char* state, const char* reasons);
NORVANE_API HRESULT SetIPPPollObserver(Norvane::IPPProvider* provider, NorvanePollObserver observer, void* context);

// One Get-Jobs request for the requesting user's jobs on the provider's printer
// ("which-jobs" completed when `completed`, else not-completed), for a host whose
// printer refuses Get-Job-Attributes in the form the provider sends it: each of
// the `count` attribute names (job-id, job-state, job-name, ...) gets one line per
// job that carries it, in the printer's order, lines separated by "\n" and a
// job's values (a 1setOf) by ","; it stays empty when no job carries it. 0 when the printer answered the request,
// 0x80004005 when it refused it or could not be asked.
NORVANE_API HRESULT GetIPPJobValues(Norvane::IPPProvider* provider, const char* user, bool completed,
                                    const char* const* names, VARIANT* values, uint32_t count);

// Cancel-Job for the job that attributes->GetJobURI() names (as the printer's job
// list gives it) on behalf of attributes->GetRequestingUserName(), without the
// Get-Jobs step of the provider's CancelJob, which cancels the user's first
// unfinished job and finds none on a printer whose job list leaves out
// job-state-reasons. 0 when the printer cancelled the job; 0x80004005 when it
// refused (the response then holds nothing) or could not be asked; 0x80070057
// without a job URI.
NORVANE_API HRESULT CancelIPPJobByURI(Norvane::IPPProvider* provider, Norvane::IPPRequestBase* attributes,
                                      Norvane::IPPResponseBase* response);

// For a host's chunk writer (QxHTTPRequestEx::WriteChunk): `context` is the
// one the library passed with the chunk, naming the print-ready event of the
// stream. The event is reset while the printer is stopped with a full spool
// area and set again once it can take data. Returns 0 when the chunk may be
// written (also for context 0, which names no event), 1 (S_FALSE) when the
// printer still cannot take data after `milliseconds` (0xFFFFFFFF waits for
// good), and E_ABORT (0x80004004) as soon as the stream is stopped (CancelJob
// from another thread, a failure, its end), or when the printer's state can no
// longer be read while it was not ready: the chunk should then not be written.
// May be called on any thread.
NORVANE_API HRESULT WaitForPrintReady(uint64_t context, uint32_t milliseconds);

// Spooler printer data of a printer, for CreatePrintDataCacheProvider.
NORVANE_API uintptr_t OpenPrinterDataHandle(const char16_t* printerName);
NORVANE_API void ClosePrinterDataHandle(uintptr_t handle);

// Library and build versions, e.g. "1.0.0".
NORVANE_API const char* NorvaneVersion(void);
NORVANE_API const char* NorvaneBuildId(void);
}
