/* Compile-check stand-in for <sys/attr.h> (and getattrlist of <unistd.h>): NOT the SDK header.
   See ../README.md. */
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t attrgroup_t;

struct attrlist {
  unsigned short bitmapcount;
  uint16_t reserved;
  attrgroup_t commonattr;
  attrgroup_t volattr;
  attrgroup_t dirattr;
  attrgroup_t fileattr;
  attrgroup_t forkattr;
};

#define ATTR_BIT_MAP_COUNT 5
#define ATTR_CMN_CRTIME 0x00000200

int getattrlist(const char* path, void* attrList, void* attrBuf, size_t attrBufSize, unsigned int options);

#ifdef __cplusplus
}
#endif
