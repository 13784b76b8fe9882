// A small SNMP v1/v2c agent on 127.0.0.1 (ephemeral UDP port) for the host
// transport's tests, built on net-snmp's own message coding: it answers get,
// get-next and set from an object table and records every request it received.
#pragma once

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace NorvaneHostTest {

struct AgentObject {
  u_char type = ASN_INTEGER;
  long integer = 0;
  std::string bytes;  // octet strings
  bool writable = false;
};

struct AgentRequest {
  int command = 0;  // SNMP_MSG_GET, SNMP_MSG_GETNEXT, SNMP_MSG_SET
  long version = 0;
  std::string community;
  size_t variables = 0;
};

class LoopbackSnmpAgent {
 public:
  // Answers only requests carrying this community; others get no answer.
  LoopbackSnmpAgent(std::map<std::vector<oid>, AgentObject> objects, std::string community = "public");
  ~LoopbackSnmpAgent();
  LoopbackSnmpAgent(const LoopbackSnmpAgent&) = delete;
  LoopbackSnmpAgent& operator=(const LoopbackSnmpAgent&) = delete;

  uint16_t Port() const { return port_; }
  std::vector<AgentRequest> Requests();
  int Count(int command);
  AgentObject Object(const std::vector<oid>& name);

 private:
  static int OnMessage(int operation, netsnmp_session* session, int requestId, netsnmp_pdu* pdu, void* self);
  void Answer(netsnmp_pdu* pdu);
  void Loop();

  std::map<std::vector<oid>, AgentObject> objects_;
  std::string community_;
  void* session_ = nullptr;
  uint16_t port_ = 0;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
  std::mutex mutex_;  // guards objects_ and requests_
  std::vector<AgentRequest> requests_;
};

}  // namespace NorvaneHostTest
