// norvane: command-line access to printers through the library.
#include <CLI/CLI.hpp>
#include <cstdio>

#include "norvane/norvane.h"

int main(int argc, char** argv) {
  CLI::App app{"norvane: read data from networked printers and drive IPP jobs"};
  app.require_subcommand(1);

  auto* version = app.add_subcommand("version", "print the library and build versions");
  version->callback([] {
    std::printf("norvane %s\nbuild %s\n", NorvaneVersion(), NorvaneBuildId());
  });

  CLI11_PARSE(app, argc, argv);
  return 0;
}
