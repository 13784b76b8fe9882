#include "fault_plan.h"

#include <charconv>
#include <sstream>

namespace PrinterSim {
namespace {

// Whole-string unsigned decimal; rejects signs, blanks and trailing text.
bool ParseCount(std::string_view text, std::size_t& value) {
  if (text.empty()) return false;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  return ec == std::errc() && end == text.data() + text.size();
}

bool ParseStatus(std::string_view text, int& status) {
  std::size_t value = 0;
  if (!ParseCount(text, value) || value < 100 || value > 599) return false;
  status = static_cast<int>(value);
  return true;
}

bool ParseTerm(std::string_view term, FaultPlan& plan, std::string& error) {
  const auto colon = term.find(':');
  const std::string_view name = term.substr(0, colon);
  const std::string_view argument = colon == std::string_view::npos ? std::string_view() : term.substr(colon + 1);
  const bool hasArgument = colon != std::string_view::npos;

  int status = 0;
  if (!hasArgument && ParseStatus(name, status)) {
    plan.status = status;
    return true;
  }
  if (name == "status") {
    if (!ParseStatus(argument, status)) {
      error = "status needs a code from 100 to 599";
      return false;
    }
    plan.status = status;
    return true;
  }
  if (name == "delay" || name == "slow" || name == "stall") {
    std::size_t ms = 0;
    if (!ParseCount(argument, ms)) {
      error = std::string(name) + " needs a duration in milliseconds";
      return false;
    }
    (name == "delay" ? plan.delay : name == "slow" ? plan.slow : plan.stall) = std::chrono::milliseconds(ms);
    return true;
  }
  if (name == "truncate") {
    plan.truncate = true;
    if (hasArgument) {
      std::size_t bytes = 0;
      if (!ParseCount(argument, bytes)) {
        error = "truncate takes a byte count";
        return false;
      }
      plan.truncateAt = bytes;
    }
    return true;
  }
  if ((name == "chunked" || name == "early") && !hasArgument) {
    (name == "chunked" ? plan.chunked : plan.early) = true;
    return true;
  }
  if (name == "rotate" && !hasArgument) {
    plan.rotate = true;
    return true;
  }
  if (name == "basic") {
    if (argument.find(':') == std::string_view::npos) {
      error = "basic needs USER:PASS";
      return false;
    }
    plan.basic = argument;
    return true;
  }
  error = "unknown fault '" + std::string(term) + "'";
  return false;
}

}  // namespace

std::string FaultPlan::Describe() const {
  std::ostringstream out;
  const char* separator = "";
  auto term = [&](const auto&... parts) {
    out << separator;
    (out << ... << parts);
    separator = ",";
  };
  if (status) term(*status);
  if (delay.count() > 0) term("delay:", delay.count());
  if (slow.count() > 0) term("slow:", slow.count());
  if (truncate) {
    if (truncateAt) term("truncate:", *truncateAt);
    else term("truncate");
  }
  if (stall.count() > 0) term("stall:", stall.count());
  if (chunked) term("chunked");
  if (early) term("early");
  if (!basic.empty()) term("basic:", basic);
  if (rotate) term("rotate");
  if (remaining >= 0) out << '@' << remaining;
  return out.str();
}

std::optional<FaultPlan> ParseFaultPlan(std::string_view text, std::string& error) {
  FaultPlan plan;
  const auto at = text.rfind('@');
  if (at != std::string_view::npos) {
    std::size_t count = 0;
    if (!ParseCount(text.substr(at + 1), count) || count == 0 || count > 1'000'000) {
      error = "the count after '@' must be a positive number";
      return std::nullopt;
    }
    plan.remaining = static_cast<int>(count);
    text = text.substr(0, at);
  }
  if (text.empty()) {
    error = "empty fault";
    return std::nullopt;
  }
  while (!text.empty()) {
    const auto comma = text.find(',');
    if (!ParseTerm(text.substr(0, comma), plan, error)) return std::nullopt;
    if (comma == std::string_view::npos) break;
    text.remove_prefix(comma + 1);
    if (text.empty()) {
      error = "trailing comma";
      return std::nullopt;
    }
  }
  return plan;
}

void FaultTable::Set(const std::string& path, const FaultPlan& plan) {
  std::lock_guard lock(mutex_);
  plans_[path] = plan;
}

void FaultTable::Remove(const std::string& path) {
  std::lock_guard lock(mutex_);
  plans_.erase(path);
}

void FaultTable::Clear() {
  std::lock_guard lock(mutex_);
  plans_.clear();
}

std::optional<FaultPlan> FaultTable::Take(const std::string& path, bool earlyOnly) {
  std::lock_guard lock(mutex_);
  auto found = plans_.find(path);
  if (found == plans_.end() || (earlyOnly && !found->second.early)) return std::nullopt;
  FaultPlan plan = found->second;
  if (found->second.remaining > 0 && --found->second.remaining == 0) plans_.erase(found);
  return plan;
}

std::string FaultTable::List() const {
  std::lock_guard lock(mutex_);
  std::string out;
  for (const auto& [path, plan] : plans_) out += path + "=" + plan.Describe() + "\n";
  return out;
}

}  // namespace PrinterSim
