// A walk of the bench agent's big supplies table through an OID data
// collection, next to net-snmp's snmpbulkwalk and a bare GETBULK loop over the
// same objects, in one run.
//
// Runs inside the integration bench, which provides the agent:
//   tests/integration/bench.sh -- build/bench/snmp_walk_bench [ROUNDS]
// The last lines give microseconds per varbind and the ratio of ours to each
// reference (below 1.0: we are faster).
#include <fcntl.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "norvane/api.h"
#include "norvane/host.h"
#include "norvane/norvane.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

// prtMarkerSuppliesTable: the two bench markers' rows.
constexpr const char* kTable = "1.3.6.1.2.1.43.11.1.1";

double Seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

// snmpbulkwalk as a user runs it; its output goes to /dev/null. Returns the
// seconds of the run and counts the varbinds from a first counted run.
double BulkwalkSeconds() {
  const char* argv[] = {"snmpbulkwalk", "-v2c", "-c", "public", "-On", "-Oq", "127.0.0.1", kTable, nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  auto start = Clock::now();
  pid_t pid = 0;
  if (posix_spawnp(&pid, argv[0], &actions, nullptr, const_cast<char**>(argv), environ) != 0) return -1;
  int status = 0;
  waitpid(pid, &status, 0);
  posix_spawn_file_actions_destroy(&actions);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? Seconds(Clock::now() - start) : -1;
}

// GETBULK with 50 repetitions from the table's start to its end, in process.
double GetbulkSeconds(size_t* varbinds) {
  netsnmp_session setup;
  snmp_sess_init(&setup);
  std::string peer = "127.0.0.1";
  std::string community = "public";
  setup.version = SNMP_VERSION_2c;
  setup.peername = peer.data();
  setup.community = reinterpret_cast<u_char*>(community.data());
  setup.community_len = community.size();
  void* session = snmp_sess_open(&setup);
  if (session == nullptr) return -1;
  oid root[MAX_OID_LEN];
  size_t rootLength = MAX_OID_LEN;
  read_objid(kTable, root, &rootLength);
  std::vector<oid> current(root, root + rootLength);
  *varbinds = 0;
  auto start = Clock::now();
  for (bool more = true; more;) {
    netsnmp_pdu* request = snmp_pdu_create(SNMP_MSG_GETBULK);
    request->non_repeaters = 0;
    request->max_repetitions = 50;
    snmp_add_null_var(request, current.data(), current.size());
    netsnmp_pdu* response = nullptr;
    if (snmp_sess_synch_response(session, request, &response) != STAT_SUCCESS || response == nullptr) break;
    more = false;
    for (netsnmp_variable_list* v = response->variables; v != nullptr; v = v->next_variable) {
      if (v->type == SNMP_ENDOFMIBVIEW || v->name_length < rootLength ||
          snmp_oid_compare(v->name, rootLength, root, rootLength) != 0) {
        more = false;
        break;
      }
      ++*varbinds;
      current.assign(v->name, v->name + v->name_length);
      more = true;
    }
    snmp_free_pdu(response);
  }
  double seconds = Seconds(Clock::now() - start);
  snmp_sess_close(session);
  return seconds;
}

// The same objects through a collection: one count walk of `varbinds` steps.
double CollectionSeconds(size_t varbinds) {
  Norvane::QxNetAddress* address = CreateNetAddress(u"127.0.0.1");
  std::string document = std::string("<DataMaps><OIDDataMap><NextDataItem Name=\"Walk\" OID=\"") + kTable +
                         "\" Count=\"" + std::to_string(varbinds) + "\"/></OIDDataMap></DataMaps>";
  std::u16string wide(document.begin(), document.end());
  Norvane::DataCollection* collection = nullptr;
  double seconds = -1;
  if (CreateDataCollectionFromXML(address, wide.c_str(), &collection, nullptr) == S_OK) {
    VARIANT value;
    VariantInit(&value);
    auto start = Clock::now();
    HRESULT hr = collection->GetValue(u"Walk", &value);
    seconds = Seconds(Clock::now() - start);
    VariantClear(&value);
    std::string last = "Walk." + std::to_string(varbinds);
    std::u16string lastKey(last.begin(), last.end());
    VariantInit(&value);
    if (hr != S_OK || collection->GetValue(lastKey.c_str(), &value) != S_OK) seconds = -1;
    VariantClear(&value);
    collection->Dispose();
  }
  address->Dispose();
  return seconds;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? -1 : values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  if (std::getenv("NORVANE_BENCH") == nullptr) {
    std::fprintf(stderr, "run inside tests/integration/bench.sh\n");
    return 77;
  }
  int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
  init_snmp("snmp-walk-bench");
  size_t varbinds = 0;
  GetbulkSeconds(&varbinds);
  if (varbinds == 0) {
    std::fprintf(stderr, "the agent answered no rows\n");
    return 1;
  }
  std::vector<double> ours, bulkwalk, getbulk;
  for (int i = 0; i < rounds; ++i) {
    ours.push_back(CollectionSeconds(varbinds));
    bulkwalk.push_back(BulkwalkSeconds());
    size_t counted = 0;
    getbulk.push_back(GetbulkSeconds(&counted));
  }
  double perOurs = Median(ours) * 1e6 / static_cast<double>(varbinds);
  double perBulkwalk = Median(bulkwalk) * 1e6 / static_cast<double>(varbinds);
  double perGetbulk = Median(getbulk) * 1e6 / static_cast<double>(varbinds);
  if (Median(ours) < 0 || Median(bulkwalk) < 0) {
    std::fprintf(stderr, "a walk failed\n");
    return 1;
  }
  std::printf("%zu varbinds, median of %d rounds\n", varbinds, rounds);
  std::printf("%-44s %12s\n", "walk", "us/varbind");
  std::printf("%-44s %12.2f\n", "collection count walk (GETBULK read-ahead)", perOurs);
  std::printf("%-44s %12.2f\n", "snmpbulkwalk -v2c (process included)", perBulkwalk);
  std::printf("%-44s %12.2f\n", "net-snmp GETBULK x50 loop", perGetbulk);
  std::printf("\nratio ours / snmpbulkwalk %.2f, ours / GETBULK x50 %.2f\n", perOurs / perBulkwalk,
              perOurs / perGetbulk);
  return 0;
}
