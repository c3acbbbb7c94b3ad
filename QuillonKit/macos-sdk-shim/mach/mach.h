/* Compile-check stand-in for <mach/mach.h>: NOT the SDK header. See ../README.md. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned int mach_port_t;
typedef mach_port_t mach_port_name_t;
typedef mach_port_t ipc_space_t;
typedef int kern_return_t;

#define KERN_SUCCESS 0
#define MACH_PORT_NULL 0

extern mach_port_t mach_task_self_;
#define mach_task_self() mach_task_self_

kern_return_t mach_port_deallocate(ipc_space_t task, mach_port_name_t name);

#ifdef __cplusplus
}
#endif
