// Request handling of one listener: the device's documents or its web-services endpoint,
// the fault plans applied to them, and the /__sim/ control endpoints.
#pragma once

#include "access_log.h"
#include "fault_plan.h"
#include "fixture_store.h"
#include "ipp_answer.h"
#include "request_journal.h"
#include "stop_signal.h"

namespace httplib {
class Server;
}

namespace PrinterSim {

enum class Role {
  Web,          // GET of fixture documents (ports 80 and 8080)
  WebServices,  // SOAP POST of GetPrinterElements (port 3910)
};

// Everything the listeners share. Outlives every server it is installed on.
struct SimState {
  FixtureStore fixtures;
  FaultTable faults;
  RequestJournal journal;
  AccessLog log;
  StopSignal stop;
  bool allowExpectContinue = false;
  // Every IPP request answered with these bytes, its request-id copied in.
  std::string ippCapture;
  // A printer that knows only IPP/1.x: a 2.x request gets
  // server-error-version-not-supported.
  bool ipp11Only = false;
  // A printer that takes no chunked request body: the HTTP status it answers
  // one with from the head alone (411, 400, 501); 0 when it takes them.
  int refuseChunked = 0;
  JobBook jobs;
};

void InstallRoutes(httplib::Server& server, Role role, SimState& state);

}  // namespace PrinterSim
