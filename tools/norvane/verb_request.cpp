// get and set: one value without a collection, through the single-request
// processor (SNMP objects read and written, web-services values read).
#include <fstream>
#include <sstream>

#include "cli.h"

namespace NorvaneCli {

namespace {

struct RequestOptions {
  std::string address;
  std::string oid;
  std::string datamap;
  int32_t value = 0;
};

// The single-request processor's answer for a device its SNMP detection refused.
constexpr HRESULT kNoSnmpDevice = 117;

std::string OidDocument(const std::string& oid) {
  if (oid.empty() || oid.find_first_not_of("0123456789.") != std::string::npos) {
    throw Failure(kExitUsage, "'" + oid + "' is not a numeric OID such as 1.3.6.1.2.1.1.5.0");
  }
  return "<DataMaps><OIDDataMap><DataItem Name=\"value\" OID=\"" + oid + "\"/></OIDDataMap></DataMaps>";
}

std::string RequestDocument(const RequestOptions& options) {
  if (options.datamap.empty()) return OidDocument(options.oid);
  std::ifstream in(options.datamap);
  if (!in) throw Failure(kExitUsage, "data map '" + options.datamap + "': no such file");
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

void Run(const RequestOptions& options, const Common& common, bool set) {
  std::string document = RequestDocument(options);
  Target target = ParseTarget(options.address);
  auto address = MakeAddress(target, common);
  if (!kSingleRequestBuilt) NotAvailable(set ? "set (single requests)" : "get (single requests)");
  Norvane::Variant value;
  if (set) value = Norvane::Variant::FromInt(options.value);
  std::u16string xml = ToUtf16(document);
  HRESULT status = set ? SetValueFromSingleRequest(address.get(), xml.c_str(), value.Ptr())
                       : GetValueFromSingleRequest(address.get(), xml.c_str(), value.Ptr());
  if (status != S_OK) {
    // "Does not answer SNMP" is not what the user sees when snmpget answers.
    std::string hint = status == kNoSnmpDevice ? SnmpDetectionHint(address.get()) : std::string();
    throw Failure(kExitFailed, std::string(set ? "set" : "get") + " at " + options.address +
                                   " failed: " + (hint.empty() ? DescribeStatus(status) : hint));
  }
  std::string what = options.datamap.empty() ? options.oid : options.datamap;
  if (common.json) {
    PrintJson({{"address", options.address},
               {"item", what},
               {"value", set ? nlohmann::json(options.value) : VariantJson(value.Get())}});
  } else if (set) {
    std::printf("%s set to %d\n", what.c_str(), options.value);
  } else {
    std::printf("%s\n", VariantText(value.Get()).c_str());
  }
}

}  // namespace

void AddRequestVerbs(CLI::App& app, Common& common) {
  auto get = std::make_shared<RequestOptions>();
  auto* getVerb = app.add_subcommand("get", "Read one SNMP object or web-services value without a collection");
  getVerb->add_option("ADDRESS", get->address, "printer host")->required();
  getVerb->add_option("OID", get->oid, "numeric OID (or give --datamap)");
  getVerb->add_option("--datamap", get->datamap, "a one-item data-map document (SNMP or web services)");
  getVerb->callback([get, &common] { Run(*get, common, false); });

  auto set = std::make_shared<RequestOptions>();
  auto* setVerb = app.add_subcommand("set", "Write one integer SNMP object without a collection");
  setVerb->add_option("ADDRESS", set->address, "printer host")->required();
  setVerb->add_option("OID", set->oid, "numeric OID")->required();
  setVerb->add_option("VALUE", set->value, "integer value")->required();
  setVerb->callback([set, &common] { Run(*set, common, true); });
}

}  // namespace NorvaneCli
