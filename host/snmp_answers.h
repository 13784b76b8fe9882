// What an agent answered in the last second, shared by the connections of one
// address: a GET of an object a get-several or a row read-ahead has just
// delivered, or shown not to exist, is answered without asking the agent again.
// A second is the freshness the walk read-ahead already accepts: a collection
// reads a printer within it, and anything older may have changed.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "norvane/com.h"
#include "snmp_value.h"

namespace NorvaneHost {

class SnmpAnswers {
 public:
  static constexpr uint64_t kLifeMs = 1000;
  // Objects kept at most; a flood of distinct OIDs empties the store instead of growing it.
  static constexpr size_t kMaxObjects = 4096;

  enum class Known { kUnknown, kPresent, kAbsent, kSilent };

  // `who` names the credentials (community, or v3 user and context): an agent
  // answers each differently. kPresent copies the value into *value.
  Known Find(const std::string& who, const std::vector<oid>& name, uint64_t nowMs, VARIANT* value);
  // value null: the agent said the object does not exist.
  void Keep(const std::string& who, const std::vector<oid>& name, const VARIANT* value, uint64_t nowMs);
  // The agent listed `rows`, in order, as the objects that follow `after`, and
  // after them either nothing more (toEnd) or objects not listed: any other
  // object from `after` to the last row (or to the end) does not exist.
  struct Row {
    std::vector<oid> name;
    Norvane::Variant value;
  };
  void KeepSpan(const std::string& who, const std::vector<oid>& after, const std::vector<Row>& rows, bool toEnd,
                uint64_t nowMs);
  // The agent did not answer at all: a GET in the next second fails at once
  // instead of waiting out the time-out again.
  void KeepSilence(const std::string& who, uint64_t nowMs);
  // After a SET, or new credentials: nothing kept still holds.
  void Forget();

 private:
  struct Object {
    bool present = false;
    Norvane::Variant value;
    uint64_t keptMs = 0;
  };
  struct Span {
    std::vector<oid> after, last;
    uint64_t keptMs = 0;
  };
  static bool Fresh(uint64_t keptMs, uint64_t nowMs) { return nowMs - keptMs <= kLifeMs; }
  void MakeRoomNoLock(size_t wanted, uint64_t nowMs);

  std::mutex mutex_;
  std::map<std::pair<std::string, std::vector<oid>>, Object> objects_;
  std::map<std::string, std::vector<Span>> spans_;
  std::map<std::string, uint64_t> silentSince_;
};

}  // namespace NorvaneHost
