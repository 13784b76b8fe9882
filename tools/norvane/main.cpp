// norvane: command-line access to printers through the library and its
// reference host. Every verb makes the calls a host program would make.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <map>

#include "cli.h"

namespace NorvaneCli {
namespace {

void AddVersionVerb(CLI::App& app, Common& common) {
  auto* version = app.add_subcommand("version", "Print the library and build versions");
  version->callback([&common] {
    if (common.json) {
      PrintJson({{"version", NorvaneVersion()}, {"build", NorvaneBuildId()}});
    } else {
      std::printf("norvane %s\nbuild %s\n", NorvaneVersion(), NorvaneBuildId());
    }
  });
}

void AddHelpVerb(CLI::App& app) {
  auto* help = app.add_subcommand("help", "Describe the commands, or one command");
  auto* verb = new std::string;  // lives as long as the process; read once
  help->add_option("COMMAND", *verb, "a command to describe");
  help->callback([&app, verb] {
    if (verb->empty()) {
      // app.help() would describe the command being run, i.e. "help" itself.
      std::printf("%s", app.get_formatter()->make_help(&app, "norvane", CLI::AppFormatMode::Normal).c_str());
      return;
    }
    for (auto* sub : app.get_subcommands({})) {
      if (sub->get_name() == *verb) {
        std::printf("%s", sub->help().c_str());
        return;
      }
    }
    throw Failure(kExitUsage, "unknown command '" + *verb + "' (try 'norvane help')");
  });
}

// The first word that is not an option, when it names no command.
const char* UnknownVerb(CLI::App& app, int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (argv[i][0] == '-') {
      // Options of the tool itself that take a value.
      for (const char* option :
           {"--timeout", "--community", "--snmp-user", "--snmp-context", "--snmp-auth", "--snmp-priv"}) {
        if (std::strcmp(argv[i], option) == 0) {
          ++i;
          break;
        }
      }
      continue;
    }
    for (auto* sub : app.get_subcommands({})) {
      if (sub->get_name() == argv[i]) return nullptr;
    }
    return argv[i];
  }
  return nullptr;
}

}  // namespace
}  // namespace NorvaneCli

int main(int argc, char** argv) {
  using namespace NorvaneCli;
  CLI::App app{"norvane: read data from networked printers and drive IPP print jobs"};
  app.name("norvane");
  app.set_version_flag("--version", std::string("norvane ") + NorvaneVersion());
  app.require_subcommand(1);
  app.fallthrough();
  Common common;
  app.add_flag("--json", common.json, "Print JSON instead of a table");
  // Set as the flag is read, before any command runs.
  app.add_flag_callback(
         "--trace", [] { NorvaneHostSetTrace(NORVANE_HOST_TRACE_EXCHANGES, nullptr, nullptr); },
         "Trace each exchange with the printer on standard error (NORVANE_HOST_TRACE=2 adds the wire)")
      ->trigger_on_parse();
  app.add_option("--timeout", common.timeoutMs,
                 "Milliseconds to wait for a printer (default 5000); given, it also bounds how long print "
                 "waits for a ready printer and for the job's end")
      ->check(CLI::Range(100u, 600000u))
      ->each([&common](const std::string&) { common.timeoutSet = true; });
  app.add_option("--community", common.community, "SNMP community (default public)");
  app.add_flag("--strict-ipp", common.strictIpp,
               "Read only IPP/2.x answers and never fall back to IPP/1.1 (printers in the field need the fallback)");
  app.add_flag("!--no-web-services", common.webServices,
               "Skip web-services data maps: the printer has no web-services port");
  app.add_option("--snmp-user", common.snmpUser, "SNMPv3 user instead of the community");
  app.add_option("--snmp-context", common.snmpContext, "SNMPv3 context name (default none)");
  app.add_option("--snmp-auth", common.snmpAuth,
                 "SNMPv3 authentication: SHA, SHA-224, SHA-256, SHA-384 or SHA-512 "
                 "(pass phrase in NORVANE_SNMP_AUTH_PASSPHRASE)")
      ->transform(CLI::CheckedTransformer(std::map<std::string, uint32_t>{{"SHA", NORVANE_SNMP_AUTH_SHA1},
                                                                          {"SHA-224", NORVANE_SNMP_AUTH_SHA224},
                                                                          {"SHA-256", NORVANE_SNMP_AUTH_SHA256},
                                                                          {"SHA-384", NORVANE_SNMP_AUTH_SHA384},
                                                                          {"SHA-512", NORVANE_SNMP_AUTH_SHA512}},
                                          CLI::ignore_case));
  app.add_option("--snmp-priv", common.snmpPriv,
                 "SNMPv3 privacy: AES, AES-192 or AES-256 (pass phrase in NORVANE_SNMP_PRIV_PASSPHRASE)")
      ->transform(CLI::CheckedTransformer(std::map<std::string, uint32_t>{{"AES", NORVANE_SNMP_PRIV_AES128},
                                                                          {"AES-192", NORVANE_SNMP_PRIV_AES192},
                                                                          {"AES-256", NORVANE_SNMP_PRIV_AES256}},
                                          CLI::ignore_case));

  AddVersionVerb(app, common);
  AddHelpVerb(app);
  AddCollectVerbs(app, common);
  AddRequestVerbs(app, common);
  AddPrintVerbs(app, common);
  AddStatusVerbs(app, common);
  AddRegistryVerbs(app, common);
  AddDemoVerb(app, common);
  AddServeVerb(app, common);
  AddDiscoverVerb(app, common);
  app.footer(
      "Exit status: 0 done, 1 the printer or library refused, 2 bad arguments or input,\n"
      "3 not available here, 130 interrupted. 'norvane COMMAND --help' describes a command.");

  if (const char* unknown = UnknownVerb(app, argc, argv)) {
    std::fprintf(stderr, "norvane: unknown command '%s' (try 'norvane help')\n", unknown);
    return kExitUsage;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::string text = e.what();
    if (argc < 2) text = "a command is required (try 'norvane help')";
    std::fprintf(stderr, "norvane: %s\n", text.c_str());
    return kExitUsage;
  } catch (const Failure& e) {
    std::fflush(stdout);
    if (*e.what() != 0) std::fprintf(stderr, "norvane: %s\n", e.what());
    return e.Exit();
  } catch (const std::exception& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "norvane: %s\n", e.what());
    return kExitFailed;
  }
  return 0;
}
