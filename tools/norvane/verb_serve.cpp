// serve: a Prometheus exporter in the multi-target style. Prometheus names the
// printer and the data map in each scrape (/probe?target=...&datamap=...); the
// exporter collects that printer through the library, as `collect` does, and
// answers OpenMetrics text. /metrics holds the exporter's own figures.
#include <httplib.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>

#include "allow_list.h"
#include "collect.h"
#include "exporter_stats.h"
#include "openmetrics.h"
#include "probe_metrics.h"
#include "serve_pool.h"

namespace NorvaneCli {

namespace {

using Clock = std::chrono::steady_clock;

struct ServeOptions {
  std::string listen = "127.0.0.1:9170";
  unsigned parallel = 16;
  double probeTimeout = 9;
  std::string datamapDir;
  std::vector<std::string> allow;
  bool noCache = false;
};

struct Document {
  std::string file;
  std::vector<DataMapKey> keys;
};

// Prometheus says how long it waits for the scrape; the probe ends this much
// earlier, so that its answer (a failure with its reason) still arrives.
constexpr double kScrapeMargin = 0.5;
// A stop waits this long for collections still running, beyond the answers
// already being written.
constexpr auto kStopGrace = std::chrono::seconds(3);

// Collections running, abandoned ones (past their probe's time-out) included:
// a printer that never answers holds its slot until the library's own
// time-outs end the collection, so a dead fleet cannot pile up threads.
class Slots {
 public:
  explicit Slots(unsigned limit) : limit_(limit) {}
  bool Acquire(Clock::time_point deadline) {
    std::unique_lock<std::mutex> hold(lock_);
    if (!free_.wait_until(hold, deadline, [this] { return running_ < limit_; })) return false;
    ++running_;
    return true;
  }
  void Release() {
    std::lock_guard<std::mutex> hold(lock_);
    --running_;
    free_.notify_all();
  }
  bool WaitIdle(Clock::time_point deadline) {
    std::unique_lock<std::mutex> hold(lock_);
    return free_.wait_until(hold, deadline, [this] { return running_ == 0; });
  }

 private:
  std::mutex lock_;
  std::condition_variable free_;
  unsigned running_ = 0;
  const unsigned limit_;
};

// What a collection thread hands back to the request waiting for it.
struct Pending {
  std::mutex lock;
  std::condition_variable done;
  bool finished = false;
  Collection collection;
  std::string reason, message;
};

class Exporter {
 public:
  Exporter(const ServeOptions& options, const Common& common) : options_(options), common_(common) {
    slots_ = std::make_shared<Slots>(options.parallel);
    for (const auto& range : options.allow) allow_.Add(range);
    LoadDocuments();
  }

  void Probe(const httplib::Request& request, httplib::Response& response);
  void Page(httplib::Response& response) const;
  void Metrics(const httplib::Request& request, httplib::Response& response) const {
    Exposition format = Negotiate(request.get_header_value("Accept"));
    response.set_content(stats_.Metrics(format), ContentType(format));
  }
  bool WaitIdle(Clock::time_point deadline) { return slots_->WaitIdle(deadline); }
  size_t Documents() const { return documents_.size(); }

 private:
  void LoadDocuments();
  double Budget(const httplib::Request& request) const;
  // Holds its own reference to the slots: the exporter may be gone when a
  // collection abandoned at the stop ends.
  void Collect(std::shared_ptr<Slots> slots, std::shared_ptr<Pending> pending, Target target, std::string resource,
               const Document* document, uint32_t timeoutMs);

  const ServeOptions options_;
  const Common common_;
  AllowList allow_;
  // By name: the file name without ".xml". A query names one of these and never
  // a path, so no scrape can make the exporter read another file.
  std::map<std::string, Document> documents_;
  std::shared_ptr<Slots> slots_;
  mutable ExporterStats stats_;
};

void Exporter::LoadDocuments() {
  namespace fs = std::filesystem;
  std::vector<std::string> files;
  if (options_.datamapDir.empty()) {
    files = SampleDataMaps();
  } else {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(options_.datamapDir, error)) {
      if (entry.path().extension() == ".xml") files.push_back(entry.path().string());
    }
    if (error) throw Failure(kExitUsage, "--datamap-dir '" + options_.datamapDir + "': " + error.message());
  }
  for (const auto& file : files) documents_[fs::path(file).stem().string()] = {file, ReadDataMapKeys(file)};
  if (documents_.empty()) throw Failure(kExitUsage, "no data maps to serve (give --datamap-dir DIR)");
}

double Exporter::Budget(const httplib::Request& request) const {
  double budget = options_.probeTimeout;
  std::string header = request.get_header_value("X-Prometheus-Scrape-Timeout-Seconds");
  char* end = nullptr;
  double scrape = header.empty() ? 0 : std::strtod(header.c_str(), &end);
  if (scrape > 0 && end != nullptr && *end == 0) budget = std::min(budget, std::max(0.2, scrape - kScrapeMargin));
  return budget;
}

void Exporter::Collect(std::shared_ptr<Slots> slots, std::shared_ptr<Pending> pending, Target target,
                       std::string resource, const Document* document, uint32_t timeoutMs) {
  Collection collection;
  std::string reason, message;
  try {
    Common common = common_;
    common.timeoutMs = timeoutMs;
    auto address = MakeAddress(target, common);
    std::u16string cacheKey = options_.noCache ? std::u16string() : CacheKeyPath(target, document->file);
    collection = CollectOnce(address.get(), document->file, document->keys, {}, cacheKey, resource);
    if (!collection.error.empty()) {
      reason = collection.answered == 0 && collection.values.empty() ? "no_protocol" : "no_values";
      message = collection.error;
    }
  } catch (const Failure& failure) {
    reason = "bad_target";
    message = failure.what();
  } catch (const std::exception& error) {
    reason = "error";
    message = error.what();
  }
  stats_.InFlight(-1);
  slots->Release();
  std::lock_guard<std::mutex> hold(pending->lock);
  pending->collection = std::move(collection);
  pending->reason = std::move(reason);
  pending->message = std::move(message);
  pending->finished = true;
  pending->done.notify_all();
}

void Exporter::Probe(const httplib::Request& request, httplib::Response& response) {
  const Clock::time_point start = Clock::now();
  const std::string targetText = request.get_param_value("target");
  std::string name = request.get_param_value("datamap");
  if (name.size() > 4 && name.compare(name.size() - 4, 4, ".xml") == 0) name.resize(name.size() - 4);
  auto bad = [&response](const std::string& why) {
    response.status = 400;
    response.set_content(why + "\n", "text/plain; charset=utf-8");
  };
  if (targetText.empty()) return bad("the query names no target: /probe?target=ADDRESS&datamap=NAME");
  auto document = documents_.find(name);
  if (document == documents_.end()) {
    std::string names;
    for (const auto& [known, _] : documents_) names += (names.empty() ? "" : ", ") + known;
    return bad("unknown data map '" + name + "'; this exporter serves: " + names);
  }
  Target target;
  try {
    target = ParseTarget(targetText);
  } catch (const Failure& failure) {
    return bad(std::string("bad target: ") + failure.what());
  }
  const double budget = Budget(request);
  const auto deadline = start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(budget));

  ProbeOutcome outcome;
  outcome.target = targetText;
  outcome.datamap = name;
  std::shared_ptr<Pending> pending;
  std::string resource = NamedIppResource(targetText, target);
  if (!allow_.Empty()) {
    std::string reached = allow_.Resolve(target.host, &outcome.message);
    if (reached.empty())
      outcome.reason = outcome.message.rfind("cannot resolve", 0) == 0 ? "bad_target" : "not_allowed";
    target.host = reached;
  }
  if (outcome.reason.empty() && !slots_->Acquire(deadline)) {
    outcome.reason = "busy";
    outcome.message = "all " + std::to_string(options_.parallel) + " probes were busy until the time-out";
  }
  if (outcome.reason.empty()) {
    pending = std::make_shared<Pending>();
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    stats_.InFlight(1);
    try {
      // Detached: a probe past its time-out answers at once, and its collection
      // ends on the library's time-outs, holding its slot until then.
      std::thread(&Exporter::Collect, this, slots_, pending, target, resource, &document->second,
                  static_cast<uint32_t>(std::max<long long>(left, 100)))
          .detach();
    } catch (const std::system_error& error) {
      // No thread to be had: the machine's limit, not the printer's fault.
      stats_.InFlight(-1);
      slots_->Release();
      std::lock_guard<std::mutex> hold(pending->lock);
      pending->reason = "busy";
      pending->message = std::string("no thread for the collection: ") + error.what();
      pending->finished = true;
    }
    std::unique_lock<std::mutex> hold(pending->lock);
    if (pending->done.wait_until(hold, deadline, [&] { return pending->finished; })) {
      outcome.reason = pending->reason;
      outcome.message = pending->message;
      outcome.collection = &pending->collection;
    } else {
      outcome.reason = "timeout";
      char text[96];
      std::snprintf(text, sizeof text, "the printer did not answer within %.1f s", budget);
      outcome.message = text;
    }
  }
  outcome.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  size_t cacheHits = 0;
  if (outcome.collection != nullptr) {
    for (const auto& value : outcome.collection->values) cacheHits += value.source == "cache";
  }
  stats_.Probe(name, outcome.reason, outcome.seconds, cacheHits);
  Exposition format = Negotiate(request.get_header_value("Accept"));
  response.set_content(ProbeMetrics(outcome, format), ContentType(format));
}

void Exporter::Page(httplib::Response& response) const {
  auto html = [](const std::string& text) {
    std::string out;
    for (char c : text) out += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : std::string(1, c);
    return out;
  };
  std::string list;
  for (const auto& [name, document] : documents_) {
    list += "<li><code>" + html(name) + "</code> (" + html(document.file) + ")</li>\n";
  }
  response.set_content(
      "<!DOCTYPE html>\n<html><head><title>norvane exporter</title></head><body>\n"
      "<h1>norvane exporter</h1>\n"
      "<p>Probe a printer: <a href=\"/probe?target=127.0.0.1&amp;datamap=printer-status-ipp\">"
      "/probe?target=ADDRESS&amp;datamap=NAME</a>. The exporter's own figures: <a href=\"/metrics\">/metrics</a>.</p>\n"
      "<p>Data maps:</p><ul>\n" +
          list + "</ul>\n</body></html>\n",
      "text/html; charset=utf-8");
}

// HOST:PORT, [V6]:PORT.
void SplitListen(const std::string& listen, std::string* host, int* port) {
  size_t colon = listen.rfind(':');
  bool ok = colon != std::string::npos && colon + 1 < listen.size() &&
            listen.find_first_not_of("0123456789", colon + 1) == std::string::npos && listen.size() - colon <= 6;
  if (ok) {
    *host = listen.substr(0, colon);
    if (host->size() > 1 && host->front() == '[' && host->back() == ']') *host = host->substr(1, host->size() - 2);
    *port = std::stoi(listen.substr(colon + 1));
    ok = !host->empty() && *port <= 65535;
  }
  if (!ok) throw Failure(kExitUsage, "--listen '" + listen + "': expected HOST:PORT or [IPV6]:PORT");
}

void RunServe(const ServeOptions& options, const Common& common) {
  Exporter exporter(options, common);
  std::string host;
  int port = 0;
  SplitListen(options.listen, &host, &port);

  // SIGTERM and SIGINT go to one thread that stops the server; every other
  // thread, the server's included, inherits the blocked mask.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGTERM);
  sigaddset(&stopSignals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  httplib::Server server;
  // Waiting probes hold a thread, so there are twice as many threads as
  // collections, and a few for /metrics.
  const size_t threads = options.parallel * 2 + 4;
  server.new_task_queue = [threads, &options] { return new BoundedPool(threads, options.parallel * 4); };
  server.set_read_timeout(5, 0);
  server.set_write_timeout(5, 0);
  server.Get("/probe", [&exporter](const httplib::Request& q, httplib::Response& r) { exporter.Probe(q, r); });
  server.Get("/metrics", [&exporter](const httplib::Request& q, httplib::Response& r) { exporter.Metrics(q, r); });
  server.Get("/", [&exporter](const httplib::Request&, httplib::Response& r) { exporter.Page(r); });
  server.set_error_handler([](const httplib::Request& q, httplib::Response& r) {
    if (!r.body.empty()) return;
    r.set_content(r.status == 404 ? "no such page: " + q.path + " (try /, /probe or /metrics)\n"
                                  : "HTTP status " + std::to_string(r.status) + "\n",
                  "text/plain; charset=utf-8");
  });

  if (port == 0) {
    port = server.bind_to_any_port(host);
    if (port < 0) throw Failure(kExitFailed, "cannot listen on " + options.listen);
  } else if (!server.bind_to_port(host, port)) {
    throw Failure(kExitFailed, "cannot listen on " + options.listen + ": " + std::strerror(errno));
  }
  std::string shown = host.find(':') != std::string::npos ? "[" + host + "]" : host;
  std::fprintf(stderr, "norvane: serving %zu data maps on http://%s:%d/\n", exporter.Documents(), shown.c_str(), port);

  std::mutex stopLock;
  bool stopped = false;
  std::thread stopper([&] {
    int received = 0;
    sigwait(&stopSignals, &received);
    std::lock_guard<std::mutex> hold(stopLock);
    if (!stopped) std::fprintf(stderr, "norvane: %s: finishing the probes in flight\n", strsignal(received));
    stopped = true;
    server.stop();
  });
  server.listen_after_bind();
  bool bySignal;
  {
    std::lock_guard<std::mutex> hold(stopLock);
    bySignal = stopped;
    // The listener ended on its own: the stopper still waits for a signal.
    if (!stopped) {
      stopped = true;
      pthread_kill(stopper.native_handle(), SIGTERM);
    }
  }
  stopper.join();
  if (!bySignal) throw Failure(kExitFailed, "the listener on " + options.listen + " failed");
  // Collections abandoned by their time-out still run; they end on the
  // library's time-outs, but a stop does not wait for all of them.
  if (!exporter.WaitIdle(Clock::now() + kStopGrace)) {
    std::fflush(stdout);
    std::_Exit(0);
  }
}

}  // namespace

void AddServeVerb(CLI::App& app, Common& common) {
  auto options = std::make_shared<ServeOptions>();
  auto* serve = app.add_subcommand(
      "serve", "Serve printers' values to Prometheus: /probe?target=ADDRESS&datamap=NAME answers OpenMetrics text");
  serve->add_option("--listen", options->listen, "HOST:PORT to listen on (default 127.0.0.1:9170; port 0 picks one)");
  serve->add_option("--parallel", options->parallel, "collections at once (default 16); more probes wait their turn")
      ->check(CLI::Range(1u, 1024u));
  serve
      ->add_option("--probe-timeout", options->probeTimeout,
                   "seconds a probe may take (default 9); a scrape's own time-out, less half a second, "
                   "shortens it")
      ->check(CLI::Range(0.2, 600.0));
  serve->add_option("--datamap-dir", options->datamapDir,
                    "directory of the data maps a query may name (default: the installed samples)");
  serve->add_option("--allow", options->allow,
                    "address ranges probes may reach, e.g. 10.0.0.0/8,fd00::/8 (repeatable; default: any)");
  serve->add_flag("--no-cache", options->noCache, "read every value from the printer, not the registry cache");
  serve->callback([options, &common] { RunServe(*options, common); });
}

}  // namespace NorvaneCli
