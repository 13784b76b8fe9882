// Command line of norvane-printer-sim.
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "fault_plan.h"

namespace PrinterSim {

// A listener port: a number (0 picks a free port) or kPortOff to leave it closed, for
// simulating a device that lacks that service.
constexpr int kPortOff = -1;

struct Options {
  std::string bind = "127.0.0.1";
  int httpPort = 80;               // product-information document and the XML resources
  int altPort = 8080;              // discovery tree and the resources it lists
  int soapPort = 3910;             // web-services GetPrinterElements
  std::filesystem::path fixtures;  // empty: the built-in default set
  std::vector<std::pair<std::string, FaultPlan>> faults;
  std::string logFile;  // empty: standard error
  bool allowExpectContinue = false;
  std::filesystem::path ippCapture;  // empty: IPP answers made from the fixture
  bool ipp11Only = false;
  int refuseChunked = 0;  // the HTTP status a chunked POST gets; 0: taken
};

enum class ParseOutcome { Run, ShowHelp, Invalid };

ParseOutcome ParseOptions(int argc, char** argv, Options& options, std::string& error);

std::string UsageText();

}  // namespace PrinterSim
