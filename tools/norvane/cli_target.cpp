// Printer addresses and statuses in the user's words.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "cli.h"
#include "job_ops.h"

namespace NorvaneCli {

namespace {

std::string Hex(uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", value);
  return text;
}

bool AllDigits(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

std::string DescribeLastError(uint32_t lastError) {
  std::string code = lastError < 0x10000 ? std::to_string(lastError) : Hex(lastError);
  return "last error " + code + " (" + NorvaneLastErrorText(lastError) + ")";
}

std::string DescribeStatus(HRESULT status, uint32_t lastError) {
  uint32_t code = static_cast<uint32_t>(status);
  std::string text =
      "status " + (code < 0x10000 ? std::to_string(code) : Hex(code)) + " (" + NorvaneStatusText(status) + ")";
  if (lastError != 0) text += ", " + DescribeLastError(lastError);
  return text;
}

std::string ToUtf8(std::u16string_view text) { return NorvaneHost::ToUtf8(text); }
std::u16string ToUtf16(std::string_view text) { return NorvaneHost::ToUtf16(text); }

std::string Target::Uri() const {
  std::string authority = host.find(':') != std::string::npos ? "[" + host + "]" : host;
  return std::string(secure ? "ipps" : "ipp") + "://" + authority + ":" + (port.empty() ? "631" : port) + resource;
}

Target ParseTarget(const std::string& text) {
  Target target;
  target.resource = "/ipp/print";
  std::string rest = text;
  for (const char* scheme : {"ipps://", "ipp://"}) {
    if (rest.rfind(scheme, 0) == 0) {
      target.secure = std::string(scheme) == "ipps://";
      rest = rest.substr(std::char_traits<char>::length(scheme));
      size_t slash = rest.find('/');
      if (slash != std::string::npos) {
        target.resource = rest.substr(slash);
        rest = rest.substr(0, slash);
      }
      break;
    }
  }
  if (rest.find("://") != std::string::npos) {
    throw Failure(kExitUsage, "'" + text + "' is not a printer address (HOST, HOST:PORT or an ipp:// URI)");
  }
  if (!rest.empty() && rest[0] == '[') {
    size_t close = rest.find(']');
    if (close == std::string::npos) throw Failure(kExitUsage, "'" + text + "': unclosed '[' in the address");
    target.host = rest.substr(1, close - 1);
    if (close + 1 < rest.size()) {
      if (rest[close + 1] != ':') throw Failure(kExitUsage, "'" + text + "': text after ']' is not a port");
      target.port = rest.substr(close + 2);
    }
  } else if (std::count(rest.begin(), rest.end(), ':') == 1) {
    target.host = rest.substr(0, rest.find(':'));
    target.port = rest.substr(rest.find(':') + 1);
  } else {
    target.host = rest;  // a name, IPv4, or a bare IPv6 literal
  }
  if (target.host.empty()) throw Failure(kExitUsage, "'" + text + "' names no host");
  if (!target.port.empty() && (!AllDigits(target.port) || std::stoul(target.port.substr(0, 6)) - 1 > 65534)) {
    throw Failure(kExitUsage, "'" + text + "': the port must be a number from 1 to 65535");
  }
  return target;
}

namespace {

std::u16string Passphrase(const char* variable) {
  const char* value = std::getenv(variable);
  if (value == nullptr || std::strlen(value) < 8) {
    throw Failure(kExitUsage, std::string(variable) + " must hold the SNMPv3 pass phrase (8 characters or more)");
  }
  return ToUtf16(value);
}

void SetSnmpUser(Norvane::QxNetAddress* address, const Common& common) {
  if (common.snmpPriv != 0 && common.snmpAuth == 0) throw Failure(kExitUsage, "--snmp-priv needs --snmp-auth");
  uint32_t level = common.snmpPriv != 0   ? NORVANE_SNMP_AUTH_PRIV
                   : common.snmpAuth != 0 ? NORVANE_SNMP_AUTH_NO_PRIV
                                          : NORVANE_SNMP_NO_AUTH_NO_PRIV;
  NetAddressSetSnmpUser(address, ToUtf16(common.snmpUser).c_str(), level, ToUtf16(common.snmpContext).c_str());
  if (common.snmpAuth != 0) {
    NetAddressSetSnmpAuthentication(address, common.snmpAuth, Passphrase("NORVANE_SNMP_AUTH_PASSPHRASE").c_str());
  }
  if (common.snmpPriv != 0) {
    NetAddressSetSnmpPrivacy(address, common.snmpPriv, Passphrase("NORVANE_SNMP_PRIV_PASSPHRASE").c_str());
  }
}

}  // namespace

Owned<Norvane::QxNetAddress> MakeAddress(const Target& target, const Common& common) {
  Owned<Norvane::QxNetAddress> address(CreateNetAddress(ToUtf16(target.host).c_str()));
  if (!address) throw Failure(kExitUsage, "'" + target.host + "' is not a usable host");
  if (const char* error = NetAddressResolveError(address.get())) {
    throw Failure(kExitFailed, "cannot resolve host name '" + target.host + "': " + error);
  }
  if (!target.port.empty()) address->SetPortText(ToUtf16(target.port).c_str());
  if (target.secure) address->SetSecure(true);
  NetAddressSetHttpTimeouts(address.get(), common.timeoutMs, common.timeoutMs * 2);
  NetAddressSetSnmpTimeout(address.get(), std::min<uint32_t>(common.timeoutMs, 2000), 1);
  NetAddressSetSnmpCommunity(address.get(), ToUtf16(common.community).c_str());
  if (common.webServices) address->SetWebServicePortFlag(Norvane::QxNetAddress::kWebServicePortAvailable);
  if (!common.snmpUser.empty()) SetSnmpUser(address.get(), common);
  NetAddressSetIppFieldCompatibility(address.get(), common.strictIpp ? 0 : 1);
  return address;
}

Owned<Norvane::IPPProvider> MakePrintProvider(Norvane::QxNetAddress* address, const Target& target) {
  SetLastError(0);
  std::u16string uri = ToUtf16(target.Uri());
  Owned<Norvane::IPPProvider> provider(target.secure ? CreateSecureIPPPrintProvider(address, uri.c_str(), 0)
                                                     : CreateIPPPrintProvider(address, uri.c_str()));
  if (!provider) throw Failure(kExitFailed, NoIppPrinter(address, target));
  // A server that has no such queue still answers, with an IPP status instead of
  // attributes (client-error-not-found).
  Norvane::Variant status;
  if (provider->GetValue("status-code", status.Ptr()) == S_OK && status.Type() != VT_EMPTY) {
    std::string code = VariantText(status.Get());
    if (std::atoi(code.c_str()) >= 0x400) {
      throw Failure(kExitFailed, "no printer at " + target.Uri() + ": " + IppStatusName(code));
    }
  }
  return provider;
}

std::string NoIppPrinter(Norvane::QxNetAddress* address, const Target& target) {
  uint32_t lastError = GetLastError();
  uint32_t version = NetAddressIppAnsweredVersion(address);
  std::string answered = "IPP/" + std::to_string(version >> 8) + "." + std::to_string(version & 0xFF);
  // An answer came, so a printer is there: what it said is what failed.
  if (version != 0 && version >> 8 != 2 && !address->GetIppFieldCompatibility()) {
    return "the printer at " + target.Uri() + " answered " + answered + ", which --strict-ipp refuses";
  }
  if (version != 0 && lastError == 0) {
    return "the printer at " + target.Uri() + " answered, but its " + answered + " answer cannot be decoded";
  }
  return "no IPP printer at " + target.Uri() + ": " + DescribeLastError(lastError);
}

std::string SnmpDetectionHint(Norvane::QxNetAddress* address) {
  Norvane::MIBConnection* made = nullptr;
  if (address->GetMIBConnection(&made) != S_OK || made == nullptr) return {};
  Owned<Norvane::MIBConnection> connection(made);
  Norvane::Variant system, device;
  if (connection->GetValue(u"1.3.6.1.2.1.1.1.0", system.Ptr()) != S_OK) return {};
  HRESULT hr = connection->GetValue(kSnmpDetectionOid, device.Ptr());
  bool missing = hr != S_OK || device.Type() == VT_EMPTY || device.Type() == VT_NULL;
  if (!missing && !VariantText(device.Get()).empty()) return {};
  return std::string("the device answers SNMP, but its hrDeviceDescr.1 (1.3.6.1.2.1.25.3.2.1.3.1) is ") +
         (missing ? "missing" : "empty") + ", and SNMP data maps read only devices that describe themselves there";
}

std::string IppStatusName(uint32_t code) {
  static const std::map<uint32_t, const char*> names = {
      {0x0000, "successful-ok"},
      {0x0001, "successful-ok-ignored-or-substituted-attributes"},
      {0x0002, "successful-ok-conflicting-attributes"},
      {0x0400, "client-error-bad-request"},
      {0x0401, "client-error-forbidden"},
      {0x0402, "client-error-not-authenticated"},
      {0x0403, "client-error-not-authorized"},
      {0x0404, "client-error-not-possible"},
      {0x0405, "client-error-timeout"},
      {0x0406, "client-error-not-found"},
      {0x0407, "client-error-gone"},
      {0x0408, "client-error-request-entity-too-large"},
      {0x0409, "client-error-request-value-too-long"},
      {0x040A, "client-error-document-format-not-supported"},
      {0x040B, "client-error-attributes-or-values-not-supported"},
      {0x040C, "client-error-uri-scheme-not-supported"},
      {0x040D, "client-error-charset-not-supported"},
      {0x040E, "client-error-conflicting-attributes"},
      {0x040F, "client-error-compression-not-supported"},
      {0x0410, "client-error-compression-error"},
      {0x0411, "client-error-document-format-error"},
      {0x0412, "client-error-document-access-error"},
      {0x0500, "server-error-internal-error"},
      {0x0501, "server-error-operation-not-supported"},
      {0x0502, "server-error-service-unavailable"},
      {0x0503, "server-error-version-not-supported"},
      {0x0504, "server-error-device-error"},
      {0x0505, "server-error-temporary-error"},
      {0x0506, "server-error-not-accepting-jobs"},
      {0x0507, "server-error-busy"},
      {0x0508, "server-error-job-canceled"},
      {0x0509, "server-error-multiple-document-jobs-not-supported"},
  };
  auto found = names.find(code);
  if (found != names.end()) return found->second;
  char text[24];
  std::snprintf(text, sizeof text, "status 0x%04X", code);
  return text;
}

void CheckIppStatusText(const char* status, const std::string& what) {
  // The library keeps the code in decimal; anything else (no answer decoded)
  // is for the caller's own checks to report.
  if (status == nullptr || *status == 0 || !AllDigits(status)) return;
  unsigned long code = std::strtoul(status, nullptr, 10);
  if (code < 0x0400 || code > 0xFFFF) return;
  char hex[8];
  std::snprintf(hex, sizeof hex, "0x%04lX", code);
  throw Failure(kExitFailed,
                what + ": the printer answered " + IppStatusName(static_cast<uint32_t>(code)) + " (" + hex + ")");
}

void CheckIppStatus(Norvane::IPPProvider* provider, const std::string& what) {
  Norvane::Variant value;
  if (provider->GetValue("status-code", value.Ptr()) != S_OK) return;
  CheckIppStatusText(VariantText(value.Get()).c_str(), what);
}

std::string VariantText(const VARIANT& value) {
  switch (value.vt) {
    case VT_EMPTY:
      return "(not reported)";
    case VT_NULL:
      return "(null)";
    case VT_BSTR:
      return value.bstrVal == nullptr ? "" : ToUtf8(std::u16string_view(value.bstrVal, SysStringLen(value.bstrVal)));
    case VT_I4:
      return std::to_string(value.lVal);
    case VT_INT:
      return std::to_string(value.intVal);
    case VT_UI4:
    case VT_UINT:
      return std::to_string(value.ulVal);
    case VT_BOOL:
      return value.boolVal ? "true" : "false";
    case VT_ARRAY | VT_UI1: {
      std::string hex;
      if (value.parray != nullptr) {
        const auto* bytes = static_cast<const uint8_t*>(value.parray->pvData);
        for (ULONG i = 0; i < value.parray->rgsabound[0].cElements; ++i) {
          char pair[4];
          std::snprintf(pair, sizeof pair, "%02x", bytes[i]);
          hex += pair;
        }
      }
      return hex;
    }
    default:
      return "(variant type " + std::to_string(value.vt) + ")";
  }
}

nlohmann::json VariantJson(const VARIANT& value) {
  switch (value.vt) {
    case VT_EMPTY:
    case VT_NULL:
      return nullptr;
    case VT_I4:
      return value.lVal;
    case VT_INT:
      return value.intVal;
    case VT_UI4:
    case VT_UINT:
      return value.ulVal;
    case VT_BOOL:
      return value.boolVal != 0;
    default:
      return VariantText(value);
  }
}

}  // namespace NorvaneCli
