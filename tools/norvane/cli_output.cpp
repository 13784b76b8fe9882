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

// The code point at `at`, advancing `at`; a byte that starts no valid sequence
// counts as one character of its own.
char32_t NextCodePoint(const std::string& text, size_t& at) {
  unsigned char lead = static_cast<unsigned char>(text[at++]);
  int extra = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
  char32_t code = extra == 0 ? lead : lead & (0x3F >> extra);
  for (int i = 0; i < extra; ++i) {
    if (at >= text.size() || (static_cast<unsigned char>(text[at]) & 0xC0) != 0x80) return lead;
    code = code << 6 | (static_cast<unsigned char>(text[at++]) & 0x3F);
  }
  return code;
}

// Columns a code point takes on a terminal: combining marks none, the wide and
// full-width East Asian ranges two, everything else one.
int CodePointWidth(char32_t c) {
  if ((c >= 0x0300 && c <= 0x036F) || c == 0x200B || (c >= 0xFE00 && c <= 0xFE0F)) return 0;
  const bool wide = (c >= 0x1100 && c <= 0x115F) || (c >= 0x2E80 && c <= 0x303E) || (c >= 0x3041 && c <= 0x33FF) ||
                    (c >= 0x3400 && c <= 0x4DBF) || (c >= 0x4E00 && c <= 0x9FFF) || (c >= 0xA000 && c <= 0xA4CF) ||
                    (c >= 0xAC00 && c <= 0xD7A3) || (c >= 0xF900 && c <= 0xFAFF) || (c >= 0xFE30 && c <= 0xFE4F) ||
                    (c >= 0xFF00 && c <= 0xFF60) || (c >= 0xFFE0 && c <= 0xFFE6) || (c >= 0x1F300 && c <= 0x1F64F) ||
                    (c >= 0x20000 && c <= 0x3FFFD);
  return wide ? 2 : 1;
}

}  // namespace

size_t DisplayWidth(const std::string& text) {
  size_t width = 0;
  for (size_t at = 0; at < text.size();) width += static_cast<size_t>(CodePointWidth(NextCodePoint(text, at)));
  return width;
}

std::string PadToWidth(const std::string& text, size_t width) {
  size_t have = DisplayWidth(text);
  return have >= width ? text : text + std::string(width - have, ' ');
}

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
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], DisplayWidth(row[i]));
  }
  for (const auto& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      line += i + 1 < row.size() ? PadToWidth(row[i], widths[i] + 2) : row[i];
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
