// What the verbs of the norvane tool share: the failure that ends a verb with one
// line on standard error, output in a table or JSON, printer addresses, variants
// as text, and where the installed sample data maps and bench live.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "norvane/host.h"
#include "norvane/norvane.h"

namespace NorvaneCli {

// Exit statuses, as the man page lists them.
constexpr int kExitFailed = 1;       // the printer or the library refused
constexpr int kExitUsage = 2;        // bad arguments or input files
constexpr int kExitUnavailable = 3;  // the feature or the environment is missing
constexpr int kExitInterrupted = 130;

// Ends the verb: main prints "norvane: <what>" and exits with `exit`.
class Failure : public std::runtime_error {
 public:
  Failure(int exit, const std::string& what) : std::runtime_error(what), exit_(exit) {}
  int Exit() const { return exit_; }

 private:
  int exit_;
};

// "status 0x80004005 (the operation failed)", plus the last error when set.
std::string DescribeStatus(HRESULT status, uint32_t lastError = 0);
std::string DescribeLastError(uint32_t lastError);

// Releases a library or host object's reference.
struct Disposer {
  template <class T>
  void operator()(T* object) const {
    if (object != nullptr) object->Dispose();
  }
};
template <class T>
using Owned = std::unique_ptr<T, Disposer>;

// Options every verb shares.
struct Common {
  bool json = false;
  uint32_t timeoutMs = 5000;
  bool timeoutSet = false;  // --timeout was given: it also bounds a print's waits
  std::string community = "public";
  // Whether data maps of the web-services kind are tried: a host that knows the
  // device has no web-services port says so and saves the attempt.
  bool webServices = true;
  // The library's IPP as specified, without the host's field compatibility
  // (IPP/1.x answers, the 1.1 fallback, language-tagged texts).
  bool strictIpp = false;
  // SNMPv3 when snmpUser is set; the pass phrases come from the environment
  // (NORVANE_SNMP_AUTH_PASSPHRASE, NORVANE_SNMP_PRIV_PASSPHRASE), not the command line.
  std::string snmpUser;
  std::string snmpContext;
  uint32_t snmpAuth = 0;  // NORVANE_SNMP_AUTH_*, 0: none
  uint32_t snmpPriv = 0;  // NORVANE_SNMP_PRIV_*, 0: none
};

// A printer as the user names it: HOST, HOST:PORT (the IPP port), [V6]:PORT, or an
// ipp/ipps URI.
struct Target {
  std::string host;
  std::string port;      // empty: the protocols' own
  std::string resource;  // IPP resource path, "/ipp/print" unless the URI names one
  bool secure = false;
  std::string Uri() const;  // ipp[s]://host:port/resource
};
Target ParseTarget(const std::string& text);

// An address for the target with the common time-outs and SNMP settings; a host
// name that does not resolve is a Failure.
Owned<Norvane::QxNetAddress> MakeAddress(const Target& target, const Common& common);
// The IPP print provider of a target, or a Failure naming why there is none.
Owned<Norvane::IPPProvider> MakePrintProvider(Norvane::QxNetAddress* address, const Target& target);
// Why no IPP provider came for the target: the last error in words, or, when the
// printer answered an IPP version the strict mode refuses, that version.
std::string NoIppPrinter(Norvane::QxNetAddress* address, const Target& target);

// An IPP status-code by its registered name ("client-error-not-found"), or
// "status 0xNNNN" for one without a name.
std::string IppStatusName(uint32_t code);
// The status-code the provider's last answer carried (from its value map); a
// Failure naming the status when it is an error (0x0400 and up). `what` says
// which exchange it was, for the message.
void CheckIppStatus(Norvane::IPPProvider* provider, const std::string& what);
// The same for the text a response object holds (decimal, as the library keeps it).
void CheckIppStatusText(const char* status, const std::string& what);

// hrDeviceDescr.1: the object the library takes an SNMP agent for a printer's by.
inline constexpr const char16_t* kSnmpDetectionOid = u"1.3.6.1.2.1.25.3.2.1.3.1";

// Why SNMP data maps refuse a device that answers SNMP: the library takes an
// agent for a printer's only when hrDeviceDescr.1 holds a text. Empty when the
// device does not answer sysDescr.0 either, or has the object.
std::string SnmpDetectionHint(Norvane::QxNetAddress* address);

// Variants as the user reads them.
std::string VariantText(const VARIANT& value);
nlohmann::json VariantJson(const VARIANT& value);

std::string ToUtf8(std::u16string_view text);
std::u16string ToUtf16(std::string_view text);

// Terminal columns of UTF-8 text (wide East Asian characters take two), and the
// text padded with spaces to `width` columns.
size_t DisplayWidth(const std::string& text);
std::string PadToWidth(const std::string& text, size_t width);

// A plain table: a header row and left-aligned columns.
class Table {
 public:
  explicit Table(std::vector<std::string> header) : rows_{std::move(header)} {}
  void Add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
  void Print(std::FILE* out) const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

void PrintJson(const nlohmann::json& value);

// The installed share directory (sample data maps, bench), found next to the
// executable (PREFIX/bin/../share/norvane) or, in a build tree, in the sources.
std::string ShareDirectory();
std::vector<std::string> SampleDataMaps();
bool IsTerminal(std::FILE* stream);

// Library paths still being written: until one is in this build, the verbs that
// need it say so instead of reporting the library's plain failure as the
// printer's.
constexpr bool kJobOperationsBuilt = true;
constexpr bool kLocaleStringsBuilt = true;
constexpr bool kSingleRequestBuilt = true;

// A feature whose library path is not in this build yet.
[[noreturn]] void NotAvailable(const std::string& what);

// The verb groups, one file each.
void AddCollectVerbs(CLI::App& app, Common& common);
void AddRequestVerbs(CLI::App& app, Common& common);
void AddPrintVerbs(CLI::App& app, Common& common);
void AddStatusVerbs(CLI::App& app, Common& common);
void AddRegistryVerbs(CLI::App& app, Common& common);
void AddDemoVerb(CLI::App& app, Common& common);
void AddServeVerb(CLI::App& app, Common& common);
void AddDiscoverVerb(CLI::App& app, Common& common);

}  // namespace NorvaneCli
