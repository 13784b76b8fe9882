#include "fixture_store.h"

#include <fstream>
#include <mutex>
#include <sstream>

namespace PrinterSim {
namespace fs = std::filesystem;

namespace {

constexpr const char* kSoapContentType = "application/soap+xml; charset=utf-8";

bool ReadFile(const fs::path& file, std::string& body) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return false;
  std::ostringstream content;
  content << in.rdbuf();
  if (in.bad()) return false;
  body = std::move(content).str();
  return true;
}

// "/" + the file's path below `base`, with '/' separators.
std::string UrlPathOf(const fs::path& file, const fs::path& base) {
  return "/" + file.lexically_relative(base).generic_string();
}

}  // namespace

std::string ContentTypeFor(const fs::path& file) {
  const std::string ext = file.extension().string();
  // Embedded web servers announce XML as text/xml; clients must not depend on a
  // charset parameter being present, so none is added here.
  if (ext == ".xml") return "text/xml";
  if (ext == ".html" || ext == ".htm") return "text/html";
  if (ext == ".json") return "application/json";
  if (ext == ".txt") return "text/plain";
  // Localised strings files, as printers announce them.
  if (ext == ".strings") return "text/strings";
  return "application/octet-stream";
}

bool FixtureStore::Load(const fs::path& root, std::string& error) {
  std::map<Key, Resource> files;
  bool anyTree = false;
  for (Tree tree : {Tree::Http, Tree::Soap}) {
    const fs::path base = root / (tree == Tree::Http ? "http" : "soap");
    std::error_code ec;
    if (!fs::is_directory(base, ec)) continue;
    anyTree = true;
    for (auto it = fs::recursive_directory_iterator(base, ec); !ec && it != fs::recursive_directory_iterator();
         it.increment(ec)) {
      if (!it->is_regular_file(ec)) continue;
      Resource resource;
      if (!ReadFile(it->path(), resource.body)) {
        error = "cannot read " + it->path().string();
        return false;
      }
      std::string urlPath = UrlPathOf(it->path(), base);
      if (tree == Tree::Soap) {
        if (it->path().extension() != ".xml") continue;
        urlPath.resize(urlPath.size() - 4);
        resource.contentType = kSoapContentType;
      } else {
        resource.contentType = ContentTypeFor(it->path());
      }
      files[{tree, urlPath}] = std::move(resource);
    }
    if (ec) {
      error = "cannot list " + base.string() + ": " + ec.message();
      return false;
    }
  }
  if (!anyTree) {
    error = root.string() + " has neither an http/ nor a soap/ directory";
    return false;
  }
  std::unique_lock lock(mutex_);
  files_ = std::move(files);
  overrides_.clear();
  return true;
}

std::optional<Resource> FixtureStore::Find(Tree tree, const std::string& path) const {
  std::shared_lock lock(mutex_);
  const Key key{tree, path};
  if (auto over = overrides_.find(key); over != overrides_.end()) return over->second;
  if (auto file = files_.find(key); file != files_.end()) return file->second;
  return std::nullopt;
}

void FixtureStore::Put(Tree tree, const std::string& path, Resource resource) {
  if (resource.contentType.empty()) resource.contentType = tree == Tree::Soap ? kSoapContentType : ContentTypeFor(path);
  std::unique_lock lock(mutex_);
  overrides_[{tree, path}] = std::move(resource);
}

void FixtureStore::Delete(Tree tree, const std::string& path) {
  std::unique_lock lock(mutex_);
  overrides_[{tree, path}] = std::nullopt;
}

void FixtureStore::Reset() {
  std::unique_lock lock(mutex_);
  overrides_.clear();
}

std::size_t FixtureStore::Count() const {
  std::shared_lock lock(mutex_);
  return files_.size();
}

}  // namespace PrinterSim
