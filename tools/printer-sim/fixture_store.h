// The documents the simulated device serves.
//
// A fixture set is a directory with two trees:
//
//   http/<url-path>        answered to GET on the web ports (80 and 8080); the file
//                          http/DevMgmt/DiscoveryTree.xml is the resource
//                          /DevMgmt/DiscoveryTree.xml
//   soap/<url-path>.xml    answered to a SOAP POST on the web-services port; the file
//                          soap/device.xml answers POST /device
//
// Files are read once at start-up, so a fixture set can be edited while a bench runs
// without half-written files ever reaching a client. Tests change documents at run
// time through Put and Delete (the control endpoint), which override the files until
// Reset.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <shared_mutex>
#include <string>

namespace PrinterSim {

enum class Tree { Http, Soap };

struct Resource {
  std::string body;
  std::string contentType;
};

class FixtureStore {
 public:
  // Reads every file below `root`/http and `root`/soap. Returns false and sets
  // `error` when neither tree exists or a file cannot be read.
  bool Load(const std::filesystem::path& root, std::string& error);

  std::optional<Resource> Find(Tree tree, const std::string& path) const;

  // Run-time overrides. Delete hides a fixture (the path answers 404) until Reset.
  void Put(Tree tree, const std::string& path, Resource resource);
  void Delete(Tree tree, const std::string& path);
  void Reset();

  std::size_t Count() const;

 private:
  using Key = std::pair<Tree, std::string>;

  mutable std::shared_mutex mutex_;
  std::map<Key, Resource> files_;
  // nullopt marks a deleted path.
  std::map<Key, std::optional<Resource>> overrides_;
};

// Content type for a fixture file, from its extension.
std::string ContentTypeFor(const std::filesystem::path& file);

}  // namespace PrinterSim
