#include "device_routes.h"

#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>

#include "ipp_answer.h"
#include "soap_exchange.h"

namespace PrinterSim {
namespace {

using httplib::Request;
using httplib::Response;

// Query parameter through which a single request asks for its own fault.
constexpr const char* kFaultParameter = "sim-fault";
// A slow body arrives in this many pieces, evenly spaced over the plan's duration.
constexpr std::size_t kSlowPieces = 10;
// How long an early answer stays on the connection before it closes: the client must
// read it before the body it is still sending makes the kernel reset the connection.
constexpr std::chrono::milliseconds kEarlyLinger{200};

const char* ReasonPhrase(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 400:
      return "Bad Request";
    case 401:
      return "Unauthorized";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 411:
      return "Length Required";
    case 415:
      return "Unsupported Media Type";
    case 417:
      return "Expectation Failed";
    case 500:
      return "Internal Server Error";
    case 501:
      return "Not Implemented";
    case 502:
      return "Bad Gateway";
    case 503:
      return "Service Unavailable";
    default:
      return "Error";
  }
}

// The request as it came in, minus the pseudo-headers httplib adds for its own use.
std::string RequestHead(const Request& req) {
  std::string head = req.method + " " + req.target + " " + req.version + "\n";
  for (const auto& [name, value] : req.headers) {
    if (name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" || name == "LOCAL_PORT") continue;
    head += name + ": " + value + "\n";
  }
  return head;
}

std::string WebErrorPage(int status) {
  const std::string title = std::to_string(status) + " " + ReasonPhrase(status);
  return "<html><head><title>" + title + "</title></head><body><h1>" + title + "</h1></body></html>\n";
}

// An injected error on the web-services port looks like a device's SOAP fault:
// Receiver for server errors, Sender for client errors.
SoapAnswer WebServicesError(int status) {
  return MakeSoapFault(status, status >= 500 ? "Receiver" : "Sender", "",
                       std::string("simulated ") + ReasonPhrase(status));
}

std::string Base64(std::string_view text) {
  static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (std::size_t i = 0; i < text.size(); i += 3) {
    uint32_t group = static_cast<uint8_t>(text[i]) << 16;
    if (i + 1 < text.size()) group |= static_cast<uint8_t>(text[i + 1]) << 8;
    if (i + 2 < text.size()) group |= static_cast<uint8_t>(text[i + 2]);
    for (std::size_t k = 0; k < 4; ++k) out += i + k <= text.size() ? kDigits[(group >> (18 - 6 * k)) & 63] : '=';
  }
  return out;
}

// Chooses the fault for this request: its own ?sim-fault= first, then the table.
// Answers 400 and returns false when the request's own plan cannot be parsed.
bool SelectPlan(const Request& req, SimState& state, FaultPlan& plan, Response& res) {
  if (req.has_param(kFaultParameter)) {
    std::string error;
    auto parsed = ParseFaultPlan(req.get_param_value(kFaultParameter), error);
    if (!parsed) {
      res.status = 400;
      res.set_content("bad sim-fault: " + error + "\n", "text/plain");
      return false;
    }
    plan = *parsed;
    return true;
  }
  plan = state.faults.Take(req.path).value_or(FaultPlan{});
  return true;
}

void LogAnswer(SimState& state, const Request& req, int status, std::size_t bytes, const FaultPlan& plan) {
  std::string line = std::to_string(req.local_port) + " " + req.remote_addr + " " + req.method + " " + req.target +
                     " -> " + std::to_string(status) + " " + std::to_string(bytes) + "B";
  const std::string faults = plan.Describe();
  if (!faults.empty()) line += " fault=" + faults;
  state.log.Write(line);
}

// Sends `body` the way `plan` says: whole, trickled, chunked or cut short.
//
// The body always goes out through a content provider with a declared length (or
// chunked framing), never as a plain string: that keeps httplib from compressing it
// and lets a truncated answer promise more bytes than it delivers. A provider that
// returns false makes httplib drop the connection, which is exactly what a device that
// dies mid-answer looks like to the client.
void Deliver(Response& res, int status, std::string body, const std::string& contentType, const FaultPlan& plan,
             const StopSignal& stop) {
  res.status = status;
  auto data = std::make_shared<const std::string>(std::move(body));
  const std::size_t size = data->size();
  const std::size_t limit = plan.truncate ? std::min(plan.truncateAt.value_or(size / 2), size) : size;
  const bool cut = limit < size;
  const std::size_t pieces = plan.slow.count() > 0 ? kSlowPieces : 1;
  const std::size_t pieceSize = std::max<std::size_t>(1, (size + pieces - 1) / pieces);
  const auto pause = plan.slow / static_cast<long>(pieces);
  const auto stall = plan.stall;
  const StopSignal* stopSignal = &stop;
  // Drops the connection where a truncated body ends, after the stall's silence.
  auto cutOff = [stall, stopSignal]() {
    if (stall.count() > 0) stopSignal->SleepFor(stall);
    return false;
  };

  auto sendFrom = [data, limit, pieceSize, pause, stopSignal](std::size_t offset, httplib::DataSink& sink) {
    if (pause.count() > 0 && !stopSignal->SleepFor(pause)) return false;
    const std::size_t n = std::min(pieceSize, limit - offset);
    return sink.write(data->data() + offset, n);
  };

  if (plan.chunked) {
    res.set_chunked_content_provider(contentType,
                                     [sendFrom, limit, cut, cutOff](std::size_t offset, httplib::DataSink& sink) {
                                       if (offset >= limit) {
                                         if (cut) return cutOff();  // no last-chunk: the client sees a broken stream
                                         sink.done();
                                         return true;
                                       }
                                       return sendFrom(offset, sink);
                                     });
    return;
  }
  if (size == 0) {
    res.set_content("", contentType);
    return;
  }
  res.set_content_provider(size, contentType,
                           [sendFrom, limit, cutOff](std::size_t offset, std::size_t, httplib::DataSink& sink) {
                             if (offset >= limit) return cutOff();  // Content-Length still owed: close the connection
                             return sendFrom(offset, sink);
                           });
}

// Waits out a "delay:" before anything is sent. False if the simulator is stopping.
bool WaitBeforeAnswer(const FaultPlan& plan, SimState& state, Response& res) {
  if (plan.delay.count() == 0 || state.stop.SleepFor(plan.delay)) return true;
  res.status = 503;
  res.set_header("Connection", "close");
  res.set_content("stopping\n", "text/plain");
  return false;
}

// Every answer starts alike: the request is journalled, its fault plan chosen,
// any delay waited out and any credentials asked for. False when the answer has
// been given already.
bool StartAnswer(const Request& req, Response& res, SimState& state, FaultPlan& plan) {
  state.journal.Record(req.path, RequestHead(req), req.body);
  if (!SelectPlan(req, state, plan, res) || !WaitBeforeAnswer(plan, state, res)) return false;
  if (plan.basic.empty() || req.get_header_value("Authorization") == "Basic " + Base64(plan.basic)) return true;
  res.status = 401;
  res.set_header("WWW-Authenticate", "Basic realm=\"printer\"");
  res.set_content(WebErrorPage(401), "text/html");
  LogAnswer(state, req, 401, res.body.size(), plan);
  return false;
}

// Answers from the request's head alone and closes the connection, before the
// body the client is still sending.
void AnswerBeforeBody(const Request& req, Response& res, SimState& state, int status, const FaultPlan& plan) {
  state.journal.Record(req.path, RequestHead(req), "");
  auto body = std::make_shared<const std::string>(WebErrorPage(status));
  LogAnswer(state, req, status, body->size(), plan);
  res.status = status;
  res.set_header("Connection", "close");
  const StopSignal* stop = &state.stop;
  res.set_content_provider(body->size(), "text/html",
                           [body, stop](std::size_t offset, std::size_t, httplib::DataSink& sink) {
                             if (!sink.write(body->data() + offset, body->size() - offset)) return false;
                             stop->SleepFor(kEarlyLinger);
                             return true;
                           });
}

// A device refusing a job from its head alone, before the body it is being sent:
// an "early" plan, or a chunked body on a printer that takes none. False when the
// request is answered after its body.
bool AnswerEarly(const Request& req, Response& res, SimState& state) {
  if (req.method != "POST" || req.path.rfind("/__sim/", 0) == 0) return false;
  if (state.refuseChunked != 0 && req.get_header_value("Transfer-Encoding").find("chunked") != std::string::npos) {
    AnswerBeforeBody(req, res, state, state.refuseChunked, FaultPlan{});
    return true;
  }
  std::optional<FaultPlan> plan;
  std::string error;
  if (req.has_param(kFaultParameter)) plan = ParseFaultPlan(req.get_param_value(kFaultParameter), error);
  else plan = state.faults.Take(req.path, /*earlyOnly=*/true);
  if (!plan || !plan->early) return false;
  AnswerBeforeBody(req, res, state, plan->status.value_or(403), *plan);
  return true;
}

// The "rotate" fault: every "{rotation}" becomes the number of this answer.
std::string Rotated(std::string body) {
  static std::atomic<unsigned long> rotation{0};
  const std::string number = std::to_string(++rotation);
  const std::string marker = "{rotation}";
  for (auto at = body.find(marker); at != std::string::npos; at = body.find(marker, at + number.size()))
    body.replace(at, marker.size(), number);
  return body;
}

void ServeDocument(const Request& req, Response& res, SimState& state) {
  FaultPlan plan;
  if (!StartAnswer(req, res, state, plan)) return;

  const auto resource = state.fixtures.Find(Tree::Http, req.path);
  int status = plan.status.value_or(resource ? 200 : 404);
  std::string body;
  std::string contentType;
  if (status == 200 && resource) {
    body = resource->body;
    contentType = resource->contentType;
    if (plan.rotate) body = Rotated(std::move(body));
  } else {
    body = WebErrorPage(status);
    contentType = "text/html";
  }
  // Embedded servers often repeat a field instead of joining its values, and a
  // client must read both as one.
  res.set_header("Cache-Control", "no-cache");
  res.set_header("Cache-Control", "no-store");
  LogAnswer(state, req, status, body.size(), plan);
  Deliver(res, status, std::move(body), contentType, plan, state.stop);
}

void ServeGetPrinterElements(const Request& req, Response& res, SimState& state) {
  FaultPlan plan;
  if (!StartAnswer(req, res, state, plan)) return;

  SoapAnswer answer;
  if (plan.status) {
    answer = WebServicesError(*plan.status);
  } else if (const auto resource = state.fixtures.Find(Tree::Soap, req.path); !resource) {
    answer = {404, "text/html", WebErrorPage(404)};
  } else if (const auto facts =
                 CheckGetPrinterElementsRequest(req.get_header_value("Content-Type"), req.body, answer)) {
    answer = {200, resource->contentType, FillResponseTemplate(resource->body, *facts)};
  }
  LogAnswer(state, req, answer.status, answer.body.size(), plan);
  Deliver(res, answer.status, std::move(answer.body), answer.contentType, plan, state.stop);
}

// IPP on the web ports, for clients that ask the device what it is before they
// fetch one of its documents (its localised strings, say).
void ServeIpp(const Request& req, Response& res, SimState& state) {
  FaultPlan plan;
  if (!StartAnswer(req, res, state, plan)) return;

  const auto resource = state.fixtures.Find(Tree::Http, req.path);
  IppAnswer answer;
  std::optional<IppAnswer> refused = state.ipp11Only ? RefuseIpp2(req.body) : std::nullopt;
  if (plan.status) {
    answer = {*plan.status, WebErrorPage(*plan.status)};
  } else if (refused) {
    answer = std::move(*refused);
  } else if (!state.ippCapture.empty()) {
    answer = AnswerFromCapture(req.body, state.ippCapture);
  } else if (auto job = resource ? state.jobs.Answer(req.body) : std::nullopt) {
    answer = std::move(*job);
  } else if (!resource) {
    answer = {404, WebErrorPage(404)};
  } else {
    answer = AnswerIppRequest(req.body, resource->body);
  }
  const bool ipp = answer.httpStatus == 200;
  LogAnswer(state, req, answer.httpStatus, answer.body.size(), plan);
  Deliver(res, answer.httpStatus, std::move(answer.body), ipp ? "application/ipp" : "text/html", plan, state.stop);
}

Tree TreeParameter(const Request& req) { return req.get_param_value("tree") == "soap" ? Tree::Soap : Tree::Http; }

void Reply(Response& res, int status, const std::string& text) {
  res.status = status;
  res.set_content(text, "text/plain");
}

void InstallControl(httplib::Server& server, SimState& state) {
  server.Get("/__sim/status", [&state](const Request&, Response& res) {
    Reply(res, 200, "ok\nfixtures: " + std::to_string(state.fixtures.Count()) + "\n");
  });
  server.Get("/__sim/faults", [&state](const Request&, Response& res) { Reply(res, 200, state.faults.List()); });
  server.Delete("/__sim/faults", [&state](const Request&, Response& res) {
    state.faults.Clear();
    Reply(res, 200, "cleared\n");
  });
  server.Post("/__sim/fault", [&state](const Request& req, Response& res) {
    const std::string path = req.get_param_value("path");
    const std::string text = req.get_param_value("plan");
    if (path.empty() || path[0] != '/') {
      Reply(res, 400, "path=/URL-PATH required\n");
      return;
    }
    if (text == "none") {
      state.faults.Remove(path);
      state.log.Write("control: fault removed from " + path);
      Reply(res, 200, "removed\n");
      return;
    }
    std::string error;
    auto plan = ParseFaultPlan(text, error);
    if (!plan) {
      Reply(res, 400, error + "\n");
      return;
    }
    state.faults.Set(path, *plan);
    state.log.Write("control: fault " + path + "=" + plan->Describe());
    Reply(res, 200, path + "=" + plan->Describe() + "\n");
  });
  server.Put("/__sim/resource", [&state](const Request& req, Response& res) {
    const std::string path = req.get_param_value("path");
    if (path.empty() || path[0] != '/') {
      Reply(res, 400, "path=/URL-PATH required\n");
      return;
    }
    // curl --data-binary sends its form type when not told otherwise; that is never
    // what a document is, so the type then follows the path as for fixture files.
    std::string contentType = req.get_header_value("Content-Type");
    if (contentType == "application/x-www-form-urlencoded") contentType.clear();
    state.fixtures.Put(TreeParameter(req), path, Resource{req.body, contentType});
    state.log.Write("control: resource " + path + " replaced (" + std::to_string(req.body.size()) + "B)");
    Reply(res, 200, "stored\n");
  });
  server.Delete("/__sim/resource", [&state](const Request& req, Response& res) {
    const std::string path = req.get_param_value("path");
    if (path.empty() || path[0] != '/') {
      Reply(res, 400, "path=/URL-PATH required\n");
      return;
    }
    state.fixtures.Delete(TreeParameter(req), path);
    state.log.Write("control: resource " + path + " deleted");
    Reply(res, 200, "deleted\n");
  });
  server.Get("/__sim/requests", [&state](const Request& req, Response& res) {
    if (req.has_param("path")) Reply(res, 200, state.journal.Describe(req.get_param_value("path")));
    else Reply(res, 200, state.journal.Summary());
  });
  server.Get("/__sim/document", [&state](const Request& req, Response& res) {
    const auto document = state.jobs.Document(std::atoi(req.get_param_value("job").c_str()));
    if (!document) {
      Reply(res, 404, "no such job\n");
      return;
    }
    res.status = 200;
    res.set_content(*document, "application/octet-stream");
  });
  server.Post("/__sim/reset", [&state](const Request&, Response& res) {
    state.faults.Clear();
    state.fixtures.Reset();
    state.journal.Clear();
    state.jobs.Clear();
    state.log.Write("control: reset");
    Reply(res, 200, "reset\n");
  });
}

}  // namespace

void InstallRoutes(httplib::Server& server, Role role, SimState& state) {
  // Control endpoints first: httplib takes the first pattern that matches.
  InstallControl(server, state);
  // Runs before httplib reads a request's body.
  server.set_pre_routing_handler([&state](const Request& req, Response& res) {
    return AnswerEarly(req, res, state) ? httplib::Server::HandlerResponse::Handled
                                        : httplib::Server::HandlerResponse::Unhandled;
  });

  if (role == Role::Web) {
    server.Get(".*", [&state](const Request& req, Response& res) { ServeDocument(req, res, state); });
    server.Post("/ipp/.*", [&state](const Request& req, Response& res) { ServeIpp(req, res, state); });
  } else {
    server.Post(".*", [&state](const Request& req, Response& res) { ServeGetPrinterElements(req, res, state); });
  }

  // Printers refuse "Expect: 100-continue" with 417, and a client that sends it
  // must be caught here rather than by the first real device. httplib writes a bare
  // status line for a handler result of 100 or 417; any other result makes it send
  // `res` as the final answer, so the 417 is returned through `res` with a body.
  server.set_expect_100_continue_handler([&state](const Request& req, Response& res) {
    if (state.allowExpectContinue) return 100;
    state.journal.Record(req.path, RequestHead(req), "");
    state.log.Write(std::to_string(req.local_port) + " " + req.remote_addr + " " + req.method + " " + req.target +
                    " -> 417 (Expect: 100-continue)");
    // This path of httplib neither frames the body nor closes the connection, so
    // both are announced here and the client ends the exchange.
    const std::string body = "Expect: 100-continue is not supported\n";
    res.status = 417;
    res.set_header("Connection", "close");
    res.set_header("Content-Length", std::to_string(body.size()));
    res.set_content(body, "text/plain");
    return 0;
  });
}

}  // namespace PrinterSim
