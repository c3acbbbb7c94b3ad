/* Compile-check stand-in for <xpc/xpc.h>: NOT the SDK header. See ../README.md. */
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void* xpc_object_t;
typedef struct _xpc_connection_s* xpc_connection_t;
typedef const struct _xpc_type_s* xpc_type_t;
typedef void (^xpc_handler_t)(xpc_object_t object);
typedef struct dispatch_queue_s* dispatch_queue_t;

extern const struct _xpc_type_s _xpc_type_dictionary;
extern const struct _xpc_type_s _xpc_type_error;
extern const struct _xpc_type_s _xpc_type_uint64;
extern const struct _xpc_type_s _xpc_type_bool;
#define XPC_TYPE_DICTIONARY (&_xpc_type_dictionary)
#define XPC_TYPE_ERROR (&_xpc_type_error)
#define XPC_TYPE_UINT64 (&_xpc_type_uint64)
#define XPC_TYPE_BOOL (&_xpc_type_bool)

extern const char* const _xpc_error_key_description;
#define XPC_ERROR_KEY_DESCRIPTION _xpc_error_key_description

xpc_type_t xpc_get_type(xpc_object_t object);
xpc_object_t xpc_retain(xpc_object_t object);
void xpc_release(xpc_object_t object);

xpc_object_t xpc_dictionary_create(const char* const* keys, const xpc_object_t* values, size_t count);
void xpc_dictionary_set_data(xpc_object_t xdict, const char* key, const void* bytes, size_t length);
void xpc_dictionary_set_uint64(xpc_object_t xdict, const char* key, uint64_t value);
void xpc_dictionary_set_bool(xpc_object_t xdict, const char* key, bool value);
xpc_object_t xpc_dictionary_get_value(xpc_object_t xdict, const char* key);
const void* xpc_dictionary_get_data(xpc_object_t xdict, const char* key, size_t* length);
const char* xpc_dictionary_get_string(xpc_object_t xdict, const char* key);
uint64_t xpc_uint64_get_value(xpc_object_t xuint);
bool xpc_bool_get_value(xpc_object_t xbool);

xpc_connection_t xpc_connection_create_mach_service(const char* name, dispatch_queue_t targetq, uint64_t flags);
void xpc_connection_set_event_handler(xpc_connection_t connection, xpc_handler_t handler);
void xpc_connection_resume(xpc_connection_t connection);
void xpc_connection_cancel(xpc_connection_t connection);
void xpc_connection_send_message(xpc_connection_t connection, xpc_object_t message);
void xpc_connection_send_message_with_reply(xpc_connection_t connection, xpc_object_t message,
                                            dispatch_queue_t replyq, xpc_handler_t handler);

#ifdef __cplusplus
}
#endif
