#include "options.h"

#include <charconv>
#include <cstdlib>

namespace PrinterSim {
namespace {

bool ParsePort(const std::string& text, int& port) {
  if (text == "off") {
    port = kPortOff;
    return true;
  }
  int value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size() || value < 0 || value > 65535) return false;
  port = value;
  return true;
}

}  // namespace

std::string UsageText() {
  return R"(Usage: norvane-printer-sim [OPTIONS]

Simulates a networked printer's XML resources and web-services endpoint.

  --fixtures DIR        fixture set to serve: DIR/http/<url-path> for GET on the web
                        ports, DIR/soap/<url-path>.xml for SOAP POST (default: the
                        set shipped with the simulator)
  --bind ADDR           address to listen on (default 127.0.0.1)
  --http-port N|off     web port of the product-information document (default 80)
  --alt-port N|off      web port of the discovery tree (default 8080)
  --soap-port N|off     web-services port (default 3910); 0 picks a free port
  --fault PATH=PLAN     inject a fault on PATH (repeatable); PLAN is a comma list of
                        404 | 500 | status:NNN | delay:MS | slow:MS | truncate[:N] |
                        stall:MS | chunked | early | basic:USER:PASS, optionally
                        followed by @COUNT
  --log FILE            append the request log to FILE (default standard error)
  --ipp-capture FILE    answer every IPP request with FILE (a recorded answer), its
                        request-id replaced by the request's
  --ipp11-only          a printer of IPP/1.1 only: a 2.x request gets
                        server-error-version-not-supported
  --refuse-chunked[=STATUS]
                        a printer that takes no chunked request body: a chunked
                        POST gets STATUS (default 411 Length Required) from its
                        head alone
  --allow-expect-continue
                        answer "Expect: 100-continue" with 100 instead of 417
  --help                show this text

A request can carry its own fault in the query string: ?sim-fault=PLAN.
Control endpoints on every port, below /__sim/: status, faults, fault (POST
?path=&plan=), resource (PUT/DELETE ?path=[&tree=soap]), requests[?path=],
document?job=N (a printed document as received), reset.
On start-up one line "norvane-printer-sim ready pid=..." goes to standard output.
)";
}

ParseOutcome ParseOptions(int argc, char** argv, Options& options, std::string& error) {
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    std::string value;
    bool hasValue = false;
    if (auto eq = arg.find('='); arg.rfind("--", 0) == 0 && eq != std::string::npos) {
      value = arg.substr(eq + 1);
      arg.resize(eq);
      hasValue = true;
    }
    auto next = [&](std::string& out) {
      if (hasValue) {
        out = value;
        return true;
      }
      if (i + 1 >= argc) {
        error = arg + " needs a value";
        return false;
      }
      out = argv[++i];
      return true;
    };

    if (arg == "--help" || arg == "-h") return ParseOutcome::ShowHelp;
    if (arg == "--ipp11-only") {
      options.ipp11Only = true;
      continue;
    }
    if (arg == "--refuse-chunked") {
      options.refuseChunked = hasValue ? std::atoi(value.c_str()) : 411;
      if (options.refuseChunked < 400 || options.refuseChunked > 599) {
        error = "--refuse-chunked=STATUS takes a 4xx or 5xx status, got '" + value + "'";
        return ParseOutcome::Invalid;
      }
      continue;
    }
    if (arg == "--allow-expect-continue") {
      options.allowExpectContinue = true;
      continue;
    }

    std::string text;
    if (arg == "--fixtures") {
      if (!next(text)) return ParseOutcome::Invalid;
      options.fixtures = text;
    } else if (arg == "--ipp-capture") {
      if (!next(text)) return ParseOutcome::Invalid;
      options.ippCapture = text;
    } else if (arg == "--bind") {
      if (!next(options.bind)) return ParseOutcome::Invalid;
    } else if (arg == "--http-port" || arg == "--alt-port" || arg == "--soap-port") {
      int& port = arg == "--http-port" ? options.httpPort : arg == "--alt-port" ? options.altPort : options.soapPort;
      if (!next(text)) return ParseOutcome::Invalid;
      if (!ParsePort(text, port)) {
        error = arg + ": '" + text + "' is not a port number or 'off'";
        return ParseOutcome::Invalid;
      }
    } else if (arg == "--fault") {
      if (!next(text)) return ParseOutcome::Invalid;
      const auto eq = text.rfind('=');
      if (eq == std::string::npos || eq == 0 || text[0] != '/') {
        error = "--fault expects /PATH=PLAN, got '" + text + "'";
        return ParseOutcome::Invalid;
      }
      std::string planError;
      auto plan = ParseFaultPlan(std::string_view(text).substr(eq + 1), planError);
      if (!plan) {
        error = "--fault " + text + ": " + planError;
        return ParseOutcome::Invalid;
      }
      options.faults.emplace_back(text.substr(0, eq), *plan);
    } else if (arg == "--log") {
      if (!next(options.logFile)) return ParseOutcome::Invalid;
    } else {
      error = "unknown option '" + arg + "'";
      return ParseOutcome::Invalid;
    }
  }
  return ParseOutcome::Run;
}

}  // namespace PrinterSim
