/* Compile-check stand-in for <servers/bootstrap.h>: NOT the SDK header. See ../README.md. */
#pragma once

#include <mach/mach.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef char name_t[128];

extern mach_port_t bootstrap_port;

kern_return_t bootstrap_look_up(mach_port_t bp, const name_t service_name, mach_port_t* sp);

#ifdef __cplusplus
}
#endif
