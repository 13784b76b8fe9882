// norvane-printer-sim: a networked printer's XML resources (ports 80 and 8080) and its
// web-services GetPrinterElements endpoint (port 3910), served from fixture files, with
// injectable faults. Used by the integration bench and the demo.
//
// Lifecycle: bind every listener, print one ready line to standard output, serve until
// SIGTERM, SIGINT or SIGHUP, then stop the listeners and exit 0. Exit 1 when a listener
// cannot be opened or dies, 2 on a bad command line.

#include <httplib.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <thread>
#include <vector>

#include "device_routes.h"
#include "options.h"

namespace fs = std::filesystem;
using namespace PrinterSim;

namespace {

// Sent to ourselves by a listener thread whose accept loop ended on its own.
constexpr int kListenerFailed = SIGUSR1;
// Idle keep-alive connections each pin a worker, and a client that keeps one
// connection per port open must not starve the slow answers of a test.
constexpr std::size_t kWorkersPerListener = 16;
// How long in-flight answers get to finish after a stop request.
constexpr auto kStopGrace = std::chrono::seconds(2);

struct Listener {
  const char* name;
  int port;
  Role role;
  std::unique_ptr<httplib::Server> server;
  std::thread thread;
};

sigset_t HandledSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (int sig : {SIGTERM, SIGINT, SIGHUP, kListenerFailed}) sigaddset(&set, sig);
  return set;
}

fs::path DefaultFixtures() {
#ifdef NORVANE_SIM_SOURCE_FIXTURES
  if (fs::is_directory(NORVANE_SIM_SOURCE_FIXTURES)) return NORVANE_SIM_SOURCE_FIXTURES;
#endif
  // Installed layout: <prefix>/bin/norvane-printer-sim, <prefix>/share/norvane/printer-sim.
  std::error_code ec;
  const fs::path self = fs::read_symlink("/proc/self/exe", ec);
  if (!ec) {
    fs::path installed = self.parent_path().parent_path() / "share/norvane/printer-sim";
    if (fs::is_directory(installed, ec)) return installed;
  }
  return {};
}

std::string Endpoint(const Options& options, const Listener& listener) {
  if (listener.port == kPortOff) return "off";
  return options.bind + ":" + std::to_string(listener.port);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::string error;
  switch (ParseOptions(argc, argv, options, error)) {
    case ParseOutcome::ShowHelp:
      std::cout << UsageText();
      return 0;
    case ParseOutcome::Invalid:
      std::cerr << "norvane-printer-sim: " << error << "\n\n" << UsageText();
      return 2;
    case ParseOutcome::Run:
      break;
  }

  // Block the stop signals before any thread exists, so every thread inherits the
  // mask and only the sigwait below ever sees them.
  const sigset_t signals = HandledSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);  // a client that hangs up mid-body must not kill us

  SimState state;
  state.allowExpectContinue = options.allowExpectContinue;
  state.ipp11Only = options.ipp11Only;
  state.refuseChunked = options.refuseChunked;
  if (!options.ippCapture.empty()) {
    std::ifstream capture(options.ippCapture, std::ios::binary);
    if (capture.is_open())
      state.ippCapture.assign(std::istreambuf_iterator<char>(capture), std::istreambuf_iterator<char>());
    if (state.ippCapture.size() < 8) {
      std::cerr << "norvane-printer-sim: --ipp-capture " << options.ippCapture.string()
                << ": cannot be read or shorter than an IPP header\n";
      return 1;
    }
  }
  if (!state.log.Open(options.logFile, error)) {
    std::cerr << "norvane-printer-sim: " << error << "\n";
    return 1;
  }
  if (options.fixtures.empty()) options.fixtures = DefaultFixtures();
  if (options.fixtures.empty()) {
    std::cerr << "norvane-printer-sim: no fixture set found; pass --fixtures DIR\n";
    return 2;
  }
  if (!state.fixtures.Load(options.fixtures, error)) {
    std::cerr << "norvane-printer-sim: " << error << "\n";
    return 2;
  }
  for (const auto& [path, plan] : options.faults) state.faults.Set(path, plan);

  std::vector<Listener> listeners;
  listeners.push_back({"http", options.httpPort, Role::Web, nullptr, {}});
  listeners.push_back({"alt", options.altPort, Role::Web, nullptr, {}});
  listeners.push_back({"soap", options.soapPort, Role::WebServices, nullptr, {}});

  for (Listener& listener : listeners) {
    if (listener.port == kPortOff) continue;
    listener.server = std::make_unique<httplib::Server>();
    listener.server->new_task_queue = [] { return new httplib::ThreadPool(kWorkersPerListener); };
    InstallRoutes(*listener.server, listener.role, state);
    bool bound = false;
    if (listener.port == 0) {
      listener.port = listener.server->bind_to_any_port(options.bind);
      bound = listener.port > 0;
    } else {
      bound = listener.server->bind_to_port(options.bind, listener.port);
    }
    if (!bound) {
      std::cerr << "norvane-printer-sim: cannot listen for " << listener.name << " on " << options.bind
                << " (port in use, no permission, or bad address)\n";
      return 1;
    }
  }

  for (Listener& listener : listeners) {
    if (!listener.server) continue;
    listener.thread = std::thread([&listener, &state] {
      listener.server->listen_after_bind();
      if (!state.stop.IsRaised()) kill(getpid(), kListenerFailed);
    });
  }

  // bind_to_port already listens, but stop() only takes effect once the accept loop
  // runs; waiting for it here means a SIGTERM right after the ready line is honoured.
  for (const Listener& listener : listeners) {
    for (int i = 0; listener.server && !listener.server->is_running() && i < 200; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }

  state.log.Write("serving " + options.fixtures.string() + " (" + std::to_string(state.fixtures.Count()) + " files)");
  std::cout << "norvane-printer-sim ready pid=" << getpid() << " http=" << Endpoint(options, listeners[0])
            << " alt=" << Endpoint(options, listeners[1]) << " soap=" << Endpoint(options, listeners[2]) << std::endl;

  int received = 0;
  sigwait(&signals, &received);
  const bool failed = received == kListenerFailed;
  state.log.Write(failed ? std::string("a listener stopped unexpectedly; shutting down")
                         : std::string("stopping on ") + strsignal(received));

  state.stop.Raise();
  for (Listener& listener : listeners) {
    if (listener.server) listener.server->stop();
  }

  // httplib's workers finish their connection before the listener returns; a client
  // that holds a keep-alive connection open would keep us here for the keep-alive
  // timeout. Give in-flight answers a short grace, then leave without waiting.
  auto joiner = std::thread([&listeners] {
    for (Listener& listener : listeners) {
      if (listener.thread.joinable()) listener.thread.join();
    }
  });
  const auto deadline = std::chrono::steady_clock::now() + kStopGrace;
  bool joined = false;
  while (std::chrono::steady_clock::now() < deadline) {
    bool running = false;
    for (const Listener& listener : listeners) running = running || (listener.server && listener.server->is_running());
    if (!running) {
      joined = true;
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  if (!joined) {
    state.log.Write("connections still open after the grace period; exiting anyway");
    std::fflush(nullptr);
    _exit(failed ? 1 : 0);
  }
  joiner.join();
  state.log.Write("stopped");
  return failed ? 1 : 0;
}
