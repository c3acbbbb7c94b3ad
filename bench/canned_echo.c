/* The floor: a minimal MCP server that answers every line with a canned reply, the tools/list
   request with a canned catalogue of the same size as the bridge's (read from the file named by
   its first argument on first use). Nothing else: no parsing, no checks. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static const char kInit[] =
    "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":{\"capabilities\":{\"tools\":{}},\"protocolVersion\":\"2024-11-05\","
    "\"serverInfo\":{\"name\":\"quillon\",\"version\":\"0\"}}}\n";
static const char kPing[] = "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":{}}\n";

static void put(const char *data, size_t size) {
  while (size > 0) {
    ssize_t n = write(1, data, size);
    if (n <= 0) _exit(0);
    data += n;
    size -= (size_t)n;
  }
}

int main(int argc, char **argv) {
  static char line[1 << 20];
  char *tools = NULL;
  size_t toolsSize = 0;
  while (fgets(line, sizeof line, stdin)) {
    if (strstr(line, "initialize")) {
      put(kInit, sizeof kInit - 1);
    } else if (strstr(line, "tools/list")) {
      if (!tools && argc > 1) {
        FILE *f = fopen(argv[1], "rb");
        if (f) {
          tools = malloc(1 << 20);
          toolsSize = fread(tools, 1, 1 << 20, f);
          fclose(f);
        }
      }
      if (tools) put(tools, toolsSize); else put(kPing, sizeof kPing - 1);
    } else {
      put(kPing, sizeof kPing - 1);
    }
  }
  return 0;
}
