// The door on macOS: an XPC connection to the gateway's Mach service, and the bootstrap look-up
// that tells a stopped suite from one that refuses us. Translation only: dictionaries in and out,
// XPC's error objects as TransportError. Everything the door decides lives in XPCClient.
#include <mach/mach.h>
#include <servers/bootstrap.h>
#include <xpc/xpc.h>

#include "QuillonKit/DoorConnection.hpp"

namespace quillon::kit {

namespace {

constexpr const char* kPayloadKey = "payload";
constexpr const char* kWireKey = "wire";
constexpr const char* kServedKey = "served_ms";
constexpr const char* kSubscribeKey = "subscribe";
constexpr const char* kEventKey = "event";

// A new dictionary the caller releases.
xpc_object_t dictionaryOf(const DoorMessage& message) {
  xpc_object_t dictionary = xpc_dictionary_create(nullptr, nullptr, 0);
  if (message.payload) xpc_dictionary_set_data(dictionary, kPayloadKey, message.payload->data(), message.payload->size());
  if (message.wire) xpc_dictionary_set_uint64(dictionary, kWireKey, *message.wire);
  if (message.servedMs) xpc_dictionary_set_uint64(dictionary, kServedKey, *message.servedMs);
  if (message.subscribe) xpc_dictionary_set_bool(dictionary, kSubscribeKey, *message.subscribe);
  if (message.event) xpc_dictionary_set_data(dictionary, kEventKey, message.event->data(), message.event->size());
  return dictionary;
}

std::optional<std::string> dataEntry(xpc_object_t dictionary, const char* key) {
  size_t length = 0;
  const void* bytes = xpc_dictionary_get_data(dictionary, key, &length);
  if (bytes == nullptr) return std::nullopt;
  return std::string(static_cast<const char*>(bytes), length);
}

std::optional<std::uint64_t> uint64Entry(xpc_object_t dictionary, const char* key) {
  xpc_object_t value = xpc_dictionary_get_value(dictionary, key);
  if (value == nullptr || xpc_get_type(value) != XPC_TYPE_UINT64) return std::nullopt;
  return xpc_uint64_get_value(value);
}

std::optional<bool> boolEntry(xpc_object_t dictionary, const char* key) {
  xpc_object_t value = xpc_dictionary_get_value(dictionary, key);
  if (value == nullptr || xpc_get_type(value) != XPC_TYPE_BOOL) return std::nullopt;
  return xpc_bool_get_value(value);
}

DoorReply replyOf(xpc_object_t object) {
  if (xpc_get_type(object) == XPC_TYPE_DICTIONARY) {
    return DoorMessage{.payload = dataEntry(object, kPayloadKey),
                       .wire = uint64Entry(object, kWireKey),
                       .servedMs = uint64Entry(object, kServedKey),
                       .subscribe = boolEntry(object, kSubscribeKey),
                       .event = dataEntry(object, kEventKey)};
  }
  const char* description = nullptr;
  if (xpc_get_type(object) == XPC_TYPE_ERROR) description = xpc_dictionary_get_string(object, XPC_ERROR_KEY_DESCRIPTION);
  return TransportError{description != nullptr ? description : "the XPC connection failed"};
}

class XPCConnection final : public DoorConnection {
 public:
  explicit XPCConnection(xpc_connection_t connection) : connection_(connection) {}
  ~XPCConnection() override {
    xpc_connection_cancel(connection_);
    xpc_release(connection_);
  }

  void resume(EventHandler onEvent) override {
    xpc_connection_set_event_handler(connection_, ^(xpc_object_t event) { onEvent(replyOf(event)); });
    xpc_connection_resume(connection_);
  }

  void send(DoorMessage message) override {
    xpc_object_t dictionary = dictionaryOf(message);
    xpc_connection_send_message(connection_, dictionary);
    xpc_release(dictionary);
  }

  void sendWithReply(DoorMessage message, ReplyHandler onReply) override {
    xpc_object_t dictionary = dictionaryOf(message);
    // No queue of our own: the reply handler runs on the connection's target queue.
    xpc_connection_send_message_with_reply(connection_, dictionary, nullptr,
                                           ^(xpc_object_t reply) { onReply(replyOf(reply)); });
    xpc_release(dictionary);
  }

  void cancel() override { xpc_connection_cancel(connection_); }

 private:
  xpc_connection_t connection_;
};

}  // namespace

std::shared_ptr<DoorConnection> SystemDoor::makeConnection(const std::string& serviceName) {
  xpc_connection_t connection = xpc_connection_create_mach_service(serviceName.c_str(), nullptr, 0);
  if (connection == nullptr) return nullptr;
  return std::make_shared<XPCConnection>(connection);
}

bool SystemDoor::serviceRegistered(const std::string& serviceName) {
  mach_port_t port = MACH_PORT_NULL;
  if (bootstrap_look_up(bootstrap_port, serviceName.c_str(), &port) != KERN_SUCCESS) return false;
  mach_port_deallocate(mach_task_self(), port);
  return true;
}

}  // namespace quillon::kit
