// collect: a data collection over the sample data maps or a given one, for one
// printer or, with --targets, for a fleet.
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include "collect.h"
#include "dns_sd.h"

namespace NorvaneCli {

namespace {

struct CollectOptions {
  std::string address;
  std::vector<std::string> datamaps;
  std::vector<std::string> keys;
  std::string targets;
  bool discover = false;
  unsigned parallel = 4;
  bool noCache = false;
};

struct Document {
  std::string file;
  std::vector<DataMapKey> keys;
};

std::vector<Document> LoadDocuments(const CollectOptions& options) {
  std::vector<std::string> files = options.datamaps;
  if (files.empty()) files = SampleDataMaps();
  if (files.empty()) {
    throw Failure(kExitUsage,
                  "no data map given and no sample data maps installed (looked in " + ShareDirectory() + "/datamaps)");
  }
  std::vector<Document> documents;
  for (const auto& file : files) documents.push_back({file, ReadDataMapKeys(file)});
  return documents;
}

// One printer over every document; failures of the printer become the
// collections' errors, never exceptions.
nlohmann::json CollectPrinter(const std::string& line, const std::vector<Document>& documents,
                              const CollectOptions& options, const Common& common, std::vector<Collection>* out) {
  nlohmann::json record = {{"address", line}};
  try {
    Target target = ParseTarget(line);
    auto address = MakeAddress(target, common);
    // An ipp:// URI with a path names the queue the IPP items read.
    const std::string resource = NamedIppResource(line, target);
    nlohmann::json maps = nlohmann::json::array();
    bool any = false;
    for (const auto& document : documents) {
      std::u16string cacheKey = options.noCache ? std::u16string() : CacheKeyPath(target, document.file);
      Collection collection =
          CollectOnce(address.get(), document.file, document.keys, options.keys, cacheKey, resource);
      any = any || collection.answered != 0;
      maps.push_back(CollectionJson(collection));
      if (out != nullptr) out->push_back(std::move(collection));
    }
    record["datamaps"] = std::move(maps);
    record["ok"] = any;
  } catch (const Failure& failure) {
    record["ok"] = false;
    record["error"] = failure.what();
  }
  return record;
}

void RunSingle(const CollectOptions& options, const Common& common) {
  Target target = ParseTarget(options.address);
  auto documents = LoadDocuments(options);
  std::vector<Collection> collections;
  nlohmann::json record = CollectPrinter(options.address, documents, options, common, &collections);
  if (record.contains("error")) throw Failure(kExitFailed, record["error"].get<std::string>());
  if (common.json) {
    PrintJson(record);
  } else {
    for (const auto& collection : collections) PrintCollection(collection, options.address);
  }
  if (!record["ok"].get<bool>()) {
    // One line naming the problem: the first collection's reason says it.
    throw Failure(kExitFailed, options.address + ": " + collections.front().error);
  }
}

// A fleet line: ADDRESS, then optionally the SNMP community (a bare word or
// community=NAME) and an SNMPv3 user (user=NAME, with the pass phrases and
// protocols of the command line). Printers of one fleet rarely share one.
std::string FleetLine(const std::string& line, const Common& common, Common* mine) {
  std::istringstream words(line);
  std::string address, word;
  words >> address;
  *mine = common;
  while (words >> word) {
    if (word.rfind("user=", 0) == 0) {
      mine->snmpUser = word.substr(5);
    } else if (word.rfind("community=", 0) == 0) {
      mine->community = word.substr(10);
    } else if (word.find('=') == std::string::npos) {
      mine->community = word;
    } else {
      throw Failure(kExitUsage, "'" + word + "': a fleet line is ADDRESS [COMMUNITY] [community=NAME] [user=NAME]");
    }
  }
  return address;
}

// What the table form says of a printer: its error, or each data map that gave
// nothing with the reason.
std::string FleetSummary(const nlohmann::json& record) {
  if (record.contains("error")) return record["error"].get<std::string>();
  std::string failures;
  size_t answered = 0;
  for (const auto& map : record["datamaps"]) {
    if (!map.contains("error")) {
      ++answered;
    } else if (map.contains("error")) {
      failures += "; " + map["error"].get<std::string>();
    }
  }
  return std::to_string(answered) + " of " + std::to_string(record["datamaps"].size()) + " data maps answered" +
         failures;
}

// Many printers: workers take the next address from the file and write one JSON
// line per printer as it finishes. Only N collections and the current lines are
// ever in memory, whatever the file's length.
// `input` holds the fleet's lines; `source` names it in messages.
void RunFleet(std::istream& input, const std::string& source, const CollectOptions& options, const Common& common) {
  auto documents = LoadDocuments(options);
  std::mutex inputLock, outputLock;
  size_t failed = 0, done = 0;
  auto worker = [&] {
    for (;;) {
      std::string line;
      {
        std::lock_guard<std::mutex> lock(inputLock);
        do {
          if (!std::getline(input, line)) return;
          line.erase(0, line.find_first_not_of(" \t"));
          line.erase(line.find_last_not_of(" \t\r") + 1);
        } while (line.empty() || line[0] == '#');
      }
      Common mine;
      std::string address;
      nlohmann::json record;
      try {
        address = FleetLine(line, common, &mine);
        record = CollectPrinter(address, documents, options, mine, nullptr);
      } catch (const Failure& failure) {
        record = {{"address", line}, {"ok", false}, {"error", failure.what()}};
        address = line;
      }
      std::lock_guard<std::mutex> lock(outputLock);
      ++done;
      if (!record["ok"].get<bool>()) ++failed;
      if (common.json) {
        PrintJson(record);
      } else {
        std::printf("%s %s %s\n", PadToWidth(address, 24).c_str(), record["ok"].get<bool>() ? "ok    " : "FAILED",
                    FleetSummary(record).c_str());
        std::fflush(stdout);
      }
    }
  };
  std::vector<std::thread> workers;
  for (unsigned i = 0; i < std::max(1u, options.parallel); ++i) workers.emplace_back(worker);
  for (auto& w : workers) w.join();
  if (done == 0) throw Failure(kExitUsage, source + " names no printer");
  if (failed == done) throw Failure(kExitFailed, "none of the " + std::to_string(done) + " printers answered");
}

}  // namespace

void AddCollectVerbs(CLI::App& app, Common& common) {
  auto options = std::make_shared<CollectOptions>();
  auto* collect = app.add_subcommand(
      "collect", "Run a data collection: every key, its value and where it came from (device, cache, static)");
  collect->add_option("ADDRESS", options->address, "printer: HOST, HOST:IPP-PORT or ipp://HOST:PORT/PATH");
  collect->add_option("KEY", options->keys, "only these keys (a walk's elements come with it)");
  collect->add_option("--datamap", options->datamaps, "data-map document, repeatable (default: the installed samples)")
      ->allow_extra_args(false)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  collect->add_option("--targets", options->targets,
                      "file of printers, one a line: ADDRESS [COMMUNITY] [user=SNMPV3-USER]: fleet mode");
  collect->add_option("--parallel", options->parallel, "printers collected at once in fleet mode (default 4)")
      ->check(CLI::Range(1u, 256u));
  collect->add_flag("--discover", options->discover,
                    "fleet mode over the printers DNS-SD announces (see discover), listening 3 s");
  collect->add_flag("--no-cache", options->noCache, "read every value from the device, not the registry cache");
  collect->callback([options, &common] {
    if (!options->targets.empty() && options->discover) {
      throw Failure(kExitUsage, "collect takes --targets or --discover, not both");
    }
    if (options->discover) {
      if (!options->address.empty()) options->keys.insert(options->keys.begin(), options->address);
      std::stringstream lines;
      for (const auto& target : DiscoveredTargets(3000)) lines << target << "\n";
      RunFleet(lines, "DNS-SD", *options, common);
    } else if (!options->targets.empty()) {
      if (!options->address.empty()) options->keys.insert(options->keys.begin(), options->address);
      std::ifstream input(options->targets);
      if (!input) throw Failure(kExitUsage, "targets file '" + options->targets + "': cannot be read");
      RunFleet(input, "targets file '" + options->targets + "'", *options, common);
    } else if (options->address.empty()) {
      throw Failure(kExitUsage, "collect needs a printer ADDRESS or --targets FILE");
    } else {
      RunSingle(*options, common);
    }
  });
}

}  // namespace NorvaneCli
