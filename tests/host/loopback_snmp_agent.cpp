#include "loopback_snmp_agent.h"

#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <stdexcept>

namespace NorvaneHostTest {

namespace {

void AddValue(netsnmp_pdu* reply, const std::vector<oid>& name, const AgentObject& object) {
  if (object.type == ASN_OCTET_STR) {
    snmp_pdu_add_variable(reply, name.data(), name.size(), ASN_OCTET_STR, object.bytes.data(), object.bytes.size());
  } else {
    snmp_pdu_add_variable(reply, name.data(), name.size(), object.type, &object.integer, sizeof(long));
  }
}

}  // namespace

LoopbackSnmpAgent::LoopbackSnmpAgent(std::map<std::vector<oid>, AgentObject> objects, std::string community)
    : objects_(std::move(objects)), community_(std::move(community)) {
  // Quiet and free of configuration files, as the host starts net-snmp; the
  // first start in the process wins, later ones do nothing.
  netsnmp_register_loghandler(NETSNMP_LOGHANDLER_NONE, LOG_DEBUG);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
  init_snmp("norvane-host-test");
  netsnmp_transport* transport = netsnmp_tdomain_transport("udp:127.0.0.1:0", 1, "udp");
  if (transport == nullptr) throw std::runtime_error("agent transport");
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(transport->sock, reinterpret_cast<sockaddr*>(&address), &length);
  port_ = ntohs(address.sin_port);
  netsnmp_session setup;
  snmp_sess_init(&setup);
  setup.version = SNMP_DEFAULT_VERSION;  // take v1 and v2c alike
  setup.callback = &LoopbackSnmpAgent::OnMessage;
  setup.callback_magic = this;
  setup.isAuthoritative = SNMP_SESS_AUTHORITATIVE;
  session_ = snmp_sess_add(&setup, transport, nullptr, nullptr);
  if (session_ == nullptr) throw std::runtime_error("agent session");
  thread_ = std::thread([this] { Loop(); });
}

LoopbackSnmpAgent::~LoopbackSnmpAgent() {
  stopping_ = true;
  thread_.join();
  snmp_sess_close(session_);
}

std::vector<AgentRequest> LoopbackSnmpAgent::Requests() {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

int LoopbackSnmpAgent::Count(int command) {
  std::lock_guard<std::mutex> lock(mutex_);
  int count = 0;
  for (const AgentRequest& request : requests_) count += request.command == command;
  return count;
}

AgentObject LoopbackSnmpAgent::Object(const std::vector<oid>& name) {
  std::lock_guard<std::mutex> lock(mutex_);
  return objects_.at(name);
}

void LoopbackSnmpAgent::Loop() {
  while (!stopping_.load()) {
    int fds = 0, block = 0;
    fd_set readable;
    FD_ZERO(&readable);
    timeval timeout{0, 50000};
    snmp_sess_select_info(session_, &fds, &readable, &timeout, &block);
    timeout = {0, 50000};
    if (select(fds, &readable, nullptr, nullptr, &timeout) > 0) snmp_sess_read(session_, &readable);
  }
}

int LoopbackSnmpAgent::OnMessage(int operation, netsnmp_session*, int, netsnmp_pdu* pdu, void* self) {
  if (operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE) static_cast<LoopbackSnmpAgent*>(self)->Answer(pdu);
  return 1;
}

void LoopbackSnmpAgent::Answer(netsnmp_pdu* pdu) {
  std::lock_guard<std::mutex> lock(mutex_);
  AgentRequest record;
  record.command = pdu->command;
  record.version = pdu->version;
  record.community.assign(reinterpret_cast<const char*>(pdu->community), pdu->community_len);
  for (netsnmp_variable_list* v = pdu->variables; v != nullptr; v = v->next_variable) ++record.variables;
  requests_.push_back(record);
  if (record.community != community_) return;  // as agents do: silence

  netsnmp_pdu* reply = snmp_clone_pdu(pdu);
  snmp_free_varbind(reply->variables);
  reply->variables = nullptr;
  reply->command = SNMP_MSG_RESPONSE;
  reply->errstat = SNMP_ERR_NOERROR;
  reply->errindex = 0;
  bool v1 = pdu->version == SNMP_VERSION_1;
  long index = 0;
  for (netsnmp_variable_list* v = pdu->variables; v != nullptr; v = v->next_variable) {
    ++index;
    std::vector<oid> name(v->name, v->name + v->name_length);
    if (pdu->command == SNMP_MSG_GET) {
      auto it = objects_.find(name);
      if (it != objects_.end()) {
        AddValue(reply, name, it->second);
      } else if (v1) {
        reply->errstat = SNMP_ERR_NOSUCHNAME, reply->errindex = index;
      } else {
        snmp_pdu_add_variable(reply, name.data(), name.size(), SNMP_NOSUCHOBJECT, nullptr, 0);
      }
    } else if (pdu->command == SNMP_MSG_GETNEXT) {
      auto it = objects_.upper_bound(name);
      if (it != objects_.end()) {
        AddValue(reply, it->first, it->second);
      } else if (v1) {
        reply->errstat = SNMP_ERR_NOSUCHNAME, reply->errindex = index;
      } else {
        snmp_pdu_add_variable(reply, name.data(), name.size(), SNMP_ENDOFMIBVIEW, nullptr, 0);
      }
    } else if (pdu->command == SNMP_MSG_SET) {
      auto it = objects_.find(name);
      if (it == objects_.end() || !it->second.writable || v->type != it->second.type) {
        reply->errstat = v1 ? SNMP_ERR_NOSUCHNAME : SNMP_ERR_NOTWRITABLE, reply->errindex = index;
      } else if (v->type == ASN_OCTET_STR) {
        it->second.bytes.assign(reinterpret_cast<const char*>(v->val.string), v->val_len);
      } else {
        it->second.integer = *v->val.integer;
      }
      AddValue(reply, name, it == objects_.end() ? AgentObject{} : it->second);
    }
  }
  if (reply->errstat != SNMP_ERR_NOERROR) {
    // An error answer carries the request's variables unchanged.
    snmp_free_varbind(reply->variables);
    reply->variables = snmp_clone_varbind(pdu->variables);
  }
  if (snmp_sess_send(session_, reply) == 0) snmp_free_pdu(reply);
}

}  // namespace NorvaneHostTest
