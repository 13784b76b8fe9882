// Output, the share directory and the unfinished-feature message.
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "cli.h"

namespace NorvaneCli {

namespace {

// A printer may answer a whole collection as one value; a table cell shows its
// start and --json the whole of it.
constexpr size_t kMaxCell = 72;

std::string Cell(const std::string& text) {
  if (text.size() <= kMaxCell) return text;
  size_t cut = kMaxCell - 3;
  while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;  // whole UTF-8 characters
  return text.substr(0, cut) + "...";
}

}  // namespace

void Table::Print(std::FILE* out) const {
  std::vector<std::vector<std::string>> rows;
  for (const auto& row : rows_) {
    std::vector<std::string> cells;
    for (const auto& cell : row) cells.push_back(Cell(cell));
    rows.push_back(std::move(cells));
  }
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (const auto& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) line.append(widths[i] - row[i].size() + 2, ' ');
    }
    std::fprintf(out, "%s\n", line.c_str());
  }
}

void PrintJson(const nlohmann::json& value) {
  // Replace, not throw, on text a printer sent that is not UTF-8.
  std::string text = value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  std::fprintf(stdout, "%s\n", text.c_str());
  std::fflush(stdout);
}

bool IsTerminal(std::FILE* stream) { return isatty(fileno(stream)) == 1; }

std::string ShareDirectory() {
  namespace fs = std::filesystem;
  if (const char* forced = std::getenv("NORVANE_SHARE_DIR"); forced != nullptr && *forced != 0) return forced;
  std::error_code error;
  fs::path exe = fs::read_symlink("/proc/self/exe", error);
  if (!error) {
    fs::path installed = exe.parent_path().parent_path() / "share" / "norvane";
    if (fs::is_directory(installed / "datamaps", error)) return installed.string();
  }
#ifdef NORVANE_SOURCE_SHARE
  // A build tree: the samples and the bench straight from the sources.
  return NORVANE_SOURCE_SHARE;
#else
  return {};
#endif
}

std::vector<std::string> SampleDataMaps() {
  namespace fs = std::filesystem;
  std::vector<std::string> files;
  std::error_code error;
  fs::path dir = fs::path(ShareDirectory()) / "datamaps";
  for (const auto& entry : fs::directory_iterator(dir, error)) {
    if (entry.path().extension() == ".xml") files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

void NotAvailable(const std::string& what) {
  throw Failure(kExitUnavailable, what + " is not available in this build");
}

}  // namespace NorvaneCli
