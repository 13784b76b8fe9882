// Collections seen in one IPP response, kept as records so that a caller can
// ask for a member of a particular collection: "media-col-ready[1].media-type"
// or "media-col-database[media-source=tray-1].media-size.x-dimension".
//
// A record holds its name (the attribute name for an outermost collection, the
// member name for a nested one), its member values and its nested records.
// Records live in flat arrays and their texts in one arena, so a response with
// hundreds of collections costs no allocation per record or member.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ipp/ipp_value_map.h"
#include "norvane/platform.h"

namespace Norvane {

class IppCollectionStore {
 public:
  void Clear();
  void Reserve(size_t responseBytes);

  // Opens a record on top of the stack of open records.
  void Open(std::string_view name);
  // Closes the top record: a nested one joins its parent's nested records, an
  // outermost one the store's list. False when no record is open.
  bool Close();
  size_t OpenDepth() const { return stack_.size(); }

  // Stores a value in the top open record under `member`; a later value of the
  // same member wins. Values outside any collection are not kept.
  void AddValue(std::string_view member, IppValueMap::Kind kind, std::string_view data);

  // Answers a query of the form name[index].member.path or
  // name[member=value,...].member.path into `value`; false (and `value`
  // unchanged) when no record or member matches.
  bool Query(std::string_view query, VARIANT* value) const;

  // Takes copies of a fresher store's closed outermost records in place of
  // the records of the same names and of `attribute` (which the fresher answer
  // may no longer hold at all); other records are kept. The store is rebuilt,
  // so repeated answers of one attribute never add up.
  void ReplaceRecords(const IppCollectionStore& fresh, std::string_view attribute);

  // Appends every closed outermost record as a small XML text to
  // <directory>/<record name>.xml, the file name reduced to safe characters.
  void Dump(const std::string& directory) const;

  // Number of closed outermost records.
  size_t RecordCount() const { return list_.size(); }
  size_t MemoryUsage() const;

 private:
  struct Record {
    uint32_t nameOffset;
    uint32_t nameLength;
    int32_t firstMember = -1;
    int32_t lastMember = -1;
    int32_t firstChild = -1;
    int32_t lastChild = -1;
    int32_t nextSibling = -1;
  };
  struct Member {
    uint32_t nameOffset;
    uint32_t nameLength;
    uint32_t valueOffset;
    uint32_t valueLength;
    IppValueMap::Kind kind;
    int32_t next = -1;
  };

  std::string_view Text(uint32_t offset, uint32_t length) const { return {arena_.data() + offset, length}; }
  uint32_t Intern(std::string_view text);
  // Index of the last member of `record` named `name`, or -1.
  int32_t FindMember(const Record& record, std::string_view name) const;
  bool Resolve(int32_t record, std::string_view path, VARIANT* value) const;
  std::string_view NameOf(int32_t record) const;
  void LinkMember(int32_t record, int32_t member);
  void LinkChild(int32_t parent, int32_t child);
  // Copies record `index` of `from` with its members and nested records;
  // returns the copy's index here.
  int32_t CopyTree(const IppCollectionStore& from, int32_t index);
  void DumpRecord(int32_t record, std::string* out) const;

  std::string arena_;
  std::vector<Record> records_;
  std::vector<Member> members_;
  std::vector<int32_t> list_;   // closed outermost records, in arrival order
  std::vector<int32_t> stack_;  // open records, innermost last
  // The member name interned last, so a run of values of one member is
  // interned once.
  size_t lastMemberSize_ = 0;
  uint32_t lastMemberOffset_ = 0;
};

// A file name made of the record name's letters, digits, "-", "_" and "."
// (anything else becomes "_"), at most 100 characters, never empty, and never
// starting with "." so it cannot name a parent or hidden file.
std::string IppDumpFileName(std::string_view recordName);

}  // namespace Norvane
