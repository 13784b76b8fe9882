// reg and log: the registry store the library keeps its caches, printer data and
// logging settings in, and the logging files it writes.
#include <algorithm>
#include <fstream>
#include <iterator>

#include "cli.h"

namespace NorvaneCli {

namespace {

using Norvane::RegistryEntry;
using Norvane::RegistryHive;

constexpr char16_t kLoggingKey[] = u"Software\\QV\\Qx\\Logging";

RegistryHive ParseHive(const std::string& text) {
  std::string upper = text;
  std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
  if (upper == "HKLM") return RegistryHive::LocalMachine;
  if (upper == "HKCU") return RegistryHive::CurrentUser;
  throw Failure(kExitUsage, "unknown hive '" + text + "' (HKLM or HKCU)");
}

std::u16string KeyPath(const std::string& text) {
  std::u16string path = ToUtf16(text);
  std::replace(path.begin(), path.end(), u'/', u'\\');
  return path;
}

void Check(long code, RegistryHive hive, const std::u16string& path, const std::string& what) {
  if (code == 0) return;
  std::string key = "'" + ToUtf8(path) + "'";
  switch (code) {
    case 2:
      throw Failure(kExitFailed, what + ": " + key + " does not exist");
    case 13:
      throw Failure(kExitFailed, what + ": the value file of " + key + " below " + Norvane::RegistryHiveRoot(hive) +
                                     " does not parse (fix or delete it)");
    case 87:
      throw Failure(kExitUsage, what + ": " + key + " is not a valid key path");
    default:
      throw Failure(kExitFailed, what + " " + key + " failed: " + DescribeLastError(static_cast<uint32_t>(code)));
  }
}

std::string EntryText(const RegistryEntry& entry) {
  if (!entry.isDword) return ToUtf8(entry.text);
  char text[32];
  std::snprintf(text, sizeof text, "0x%08x (%u)", entry.dword, entry.dword);
  return text;
}

nlohmann::json EntryJson(const RegistryEntry& entry) {
  if (entry.isDword) return entry.dword;
  return ToUtf8(entry.text);
}

// Every key at and below `path`, depth first, with its values.
void Walk(RegistryHive hive, const std::u16string& path, nlohmann::json* keys, Table* table, bool valuesToo) {
  std::vector<RegistryEntry> values;
  std::vector<std::u16string> subkeys;
  Check(Norvane::RegistryReadKey(hive, path, &values, &subkeys), hive, path, "reading");
  nlohmann::json record = {{"key", ToUtf8(path)}};
  if (valuesToo) {
    nlohmann::json object = nlohmann::json::object();
    for (const auto& v : values) {
      object[ToUtf8(v.name)] = EntryJson(v);
      table->Add({ToUtf8(path), ToUtf8(v.name), EntryText(v)});
    }
    record["values"] = std::move(object);
  } else {
    table->Add({ToUtf8(path), std::to_string(values.size())});
  }
  keys->push_back(std::move(record));
  for (const auto& sub : subkeys) Walk(hive, path.empty() ? sub : path + u"\\" + sub, keys, table, valuesToo);
}

void Show(RegistryHive hive, const std::u16string& path, bool valuesToo, const Common& common) {
  nlohmann::json keys = nlohmann::json::array();
  Table table(valuesToo ? std::vector<std::string>{"KEY", "NAME", "VALUE"} : std::vector<std::string>{"KEY", "VALUES"});
  Walk(hive, path, &keys, &table, valuesToo);
  if (common.json) {
    PrintJson({{"root", Norvane::RegistryHiveRoot(hive)}, {"keys", keys}});
  } else {
    table.Print(stdout);
  }
}

// Numbers in decimal or 0x hexadecimal become dwords; anything else text, unless
// the caller says which.
RegistryEntry MakeEntry(const std::string& name, const std::string& value, bool forceDword, bool forceText) {
  RegistryEntry entry;
  entry.name = ToUtf16(name);
  bool numeric = !value.empty();
  unsigned long long number = 0;
  try {
    size_t used = 0;
    number = std::stoull(value, &used, 0);
    numeric = used == value.size() && number <= 0xFFFFFFFFull && value[0] != '-';
  } catch (const std::exception&) {
    numeric = false;
  }
  if (forceDword && !numeric) throw Failure(kExitUsage, "'" + value + "' is not a 32-bit number");
  entry.isDword = forceDword || (numeric && !forceText);
  if (entry.isDword) {
    entry.dword = static_cast<uint32_t>(number);
  } else {
    entry.text = ToUtf16(value);
  }
  return entry;
}

struct RegOptions {
  std::string hive = "HKLM";
  std::string path;
  std::string name;
  std::string value;
  bool dword = false;
  bool text = false;
};

void AddRegVerb(CLI::App& app, Common& common) {
  auto* reg = app.add_subcommand("reg", "List, show, set and delete values in the registry store");
  reg->require_subcommand(1);
  auto o = std::make_shared<RegOptions>();
  auto hive = [o](CLI::App* verb) {
    verb->add_option("--hive", o->hive, "HKLM (caches, the default) or HKCU (settings)");
  };

  auto* list = reg->add_subcommand("list", "Keys at and below PATH with their number of values");
  list->add_option("PATH", o->path, "key path, '\\' or '/' between parts (default: the whole hive)");
  hive(list);
  list->callback([o, &common] { Show(ParseHive(o->hive), KeyPath(o->path), false, common); });

  auto* show = reg->add_subcommand("show", "Values of PATH and of every key below it");
  show->add_option("PATH", o->path, "key path")->required();
  hive(show);
  show->callback([o, &common] { Show(ParseHive(o->hive), KeyPath(o->path), true, common); });

  auto* set = reg->add_subcommand("set", "Write a value (numbers become dwords unless --text)");
  set->add_option("PATH", o->path, "key path")->required();
  set->add_option("NAME", o->name, "value name")->required();
  set->add_option("VALUE", o->value, "text, or a number for a dword")->required();
  set->add_flag("--dword", o->dword, "store as a dword");
  set->add_flag("--text", o->text, "store as text even when it looks like a number");
  hive(set);
  set->callback([o] {
    RegistryHive h = ParseHive(o->hive);
    std::u16string path = KeyPath(o->path);
    Check(Norvane::RegistryWriteValue(h, path, MakeEntry(o->name, o->value, o->dword, o->text)), h, path, "writing");
  });

  auto* remove = reg->add_subcommand("delete", "Delete a value, or without NAME the key and all below it");
  remove->add_option("PATH", o->path, "key path")->required();
  remove->add_option("NAME", o->name, "value name");
  hive(remove);
  remove->callback([o] {
    RegistryHive h = ParseHive(o->hive);
    std::u16string path = KeyPath(o->path);
    if (o->name.empty()) {
      Check(Norvane::RegistryDeleteKey(h, path), h, path, "deleting");
    } else {
      Check(Norvane::RegistryDeleteValue(h, path, ToUtf16(o->name)), h, path, "deleting '" + o->name + "' of");
    }
  });
}

// A log file is UTF-16LE with CR LF line ends; the terminal wants UTF-8 and LF.
void PrintLogFile(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw Failure(kExitUsage, "log file '" + file + "': cannot be read");
  std::u16string text;
  char pair[2];
  while (in.read(pair, 2)) {
    char16_t unit = static_cast<char16_t>(static_cast<uint8_t>(pair[0]) | (static_cast<uint8_t>(pair[1]) << 8));
    if (unit != u'\r' && unit != 0xFEFF) text.push_back(unit);
    if (text.size() >= 32768) {
      std::fputs(ToUtf8(text).c_str(), stdout);
      text.clear();
    }
  }
  std::fputs(ToUtf8(text).c_str(), stdout);
}

struct LogOptions {
  std::string program;
  std::string module;
  std::string name;
  std::string value;
  std::string file;
};

void AddLogVerb(CLI::App& app, Common& common) {
  auto* log = app.add_subcommand("log", "Show and change the logging settings; print a log file");
  log->require_subcommand(1);
  auto o = std::make_shared<LogOptions>();
  auto key = [o] {
    std::u16string path = kLoggingKey;
    if (!o->program.empty()) path += u"\\" + ToUtf16(o->program);
    if (!o->module.empty()) {
      if (o->program.empty()) throw Failure(kExitUsage, "--module needs --program");
      path += u"\\" + ToUtf16(o->module);
    }
    return path;
  };

  auto* show = log->add_subcommand("show", "The logging settings of every program and module");
  show->callback([&common] {
    std::vector<RegistryEntry> values;
    long code = Norvane::RegistryReadKey(RegistryHive::CurrentUser, kLoggingKey, &values, nullptr);
    if (code == 2) {
      if (common.json) {
        PrintJson({{"root", Norvane::RegistryHiveRoot(RegistryHive::CurrentUser)}, {"keys", nlohmann::json::array()}});
      } else {
        std::printf("logging is off: no settings below HKCU\\%s\n", ToUtf8(kLoggingKey).c_str());
      }
      return;
    }
    Show(RegistryHive::CurrentUser, kLoggingKey, true, common);
  });

  auto* set = log->add_subcommand(
      "set", "Set a logging value: LogCategories, LogOptions, LogInfoDetailLevel (numbers) or LogFileName");
  set->add_option("NAME", o->name, "value name")->required();
  set->add_option("VALUE", o->value, "number (0x... allowed) or file name")->required();
  set->add_option("--program", o->program, "only for this program (e.g. norvane)");
  set->add_option("--module", o->module, "only for this logging module (NorvaneDM, Utils, NorvaneResolver)");
  set->callback([o, key] {
    bool text = o->name == "LogFileName" || o->name.rfind("ExtMonitor", 0) == 0;
    std::u16string path = key();
    Check(Norvane::RegistryWriteValue(RegistryHive::CurrentUser, path, MakeEntry(o->name, o->value, false, text)),
          RegistryHive::CurrentUser, path, "writing");
  });

  auto* off = log->add_subcommand("off", "Remove the logging settings of the key (all of them by default)");
  off->add_option("--program", o->program, "only this program's key");
  off->add_option("--module", o->module, "only this module's key");
  off->callback([key] {
    long code = Norvane::RegistryDeleteKey(RegistryHive::CurrentUser, key());
    if (code != 2) Check(code, RegistryHive::CurrentUser, key(), "deleting");
  });

  auto* print = log->add_subcommand("print", "Print a log file (UTF-16) as UTF-8");
  print->add_option("FILE", o->file, "log file")->required();
  print->callback([o] { PrintLogFile(o->file); });
}

}  // namespace

void AddRegistryVerbs(CLI::App& app, Common& common) {
  AddRegVerb(app, common);
  AddLogVerb(app, common);
}

}  // namespace NorvaneCli
