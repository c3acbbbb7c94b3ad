/* The floor: a minimal MCP server that answers every line with a canned reply carrying the
   request's id, the tools/list request with a canned catalogue of the same size as the bridge's
   (read from the file named by its first argument on first use: a tools/list reply line, whose id
   is replaced). That is the least any server must do: read a line, tell the method, echo the id,
   write one line. Nothing else: no parsing, no checks. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/uio.h>
#include <unistd.h>

static const char kIdPrefix[] = "{\"id\":";
static const char kInit[] =
    ",\"jsonrpc\":\"2.0\",\"result\":{\"capabilities\":{\"tools\":{}},\"protocolVersion\":\"2024-11-05\","
    "\"serverInfo\":{\"name\":\"quillon\",\"version\":\"0\"}}}\n";
static const char kPing[] = ",\"jsonrpc\":\"2.0\",\"result\":{}}\n";

/* Writes {"id":<id><rest> with one writev; ends the process when the reader is gone. */
static void reply(const char *id, size_t idSize, const char *rest, size_t restSize) {
  struct iovec parts[3] = {{(void *)kIdPrefix, sizeof kIdPrefix - 1}, {(void *)id, idSize}, {(void *)rest, restSize}};
  int first = 0;
  while (first < 3) {
    ssize_t n = writev(1, parts + first, 3 - first);
    if (n <= 0) _exit(0);
    while (first < 3 && (size_t)n >= parts[first].iov_len) n -= (ssize_t)parts[first++].iov_len;
    if (first < 3) {
      parts[first].iov_base = (char *)parts[first].iov_base + n;
      parts[first].iov_len -= (size_t)n;
    }
  }
}

int main(int argc, char **argv) {
  static char line[1 << 20];
  char *tools = NULL; /* the catalogue reply from its first comma on, after the id */
  size_t toolsSize = 0;
  while (fgets(line, sizeof line, stdin)) {
    /* The id's text as sent: from after "id": to the next comma or closing brace. */
    const char *id = strstr(line, "\"id\":");
    size_t idSize = 1;
    if (id) {
      id += 5;
      idSize = strcspn(id, ",}");
    } else {
      id = "0";
    }
    if (strstr(line, "initialize")) {
      reply(id, idSize, kInit, sizeof kInit - 1);
    } else if (strstr(line, "tools/list")) {
      if (!tools && argc > 1) {
        FILE *f = fopen(argv[1], "rb");
        if (f) {
          char *file = malloc(1 << 20);
          size_t size = fread(file, 1, 1 << 20, f);
          fclose(f);
          char *comma = memchr(file, ',', size);
          if (comma) {
            tools = comma;
            toolsSize = size - (size_t)(comma - file);
          }
        }
      }
      if (tools) reply(id, idSize, tools, toolsSize); else reply(id, idSize, kPing, sizeof kPing - 1);
    } else {
      reply(id, idSize, kPing, sizeof kPing - 1);
    }
  }
  return 0;
}
