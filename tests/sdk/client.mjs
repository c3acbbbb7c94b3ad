// The official MCP TypeScript SDK as the client: it starts the bridge over stdio, runs the
// initialize handshake, and validates every reply against the protocol's schemas. Any schema
// mismatch, missing tool or wrong result shape fails the test (exit status 1).
import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StdioClientTransport } from "@modelcontextprotocol/sdk/client/stdio.js";
import assert from "node:assert/strict";

const bridgePath = process.argv[2];
if (!bridgePath) {
  console.error("usage: node client.mjs /path/to/quillon-mcp");
  process.exit(2);
}

const transport = new StdioClientTransport({ command: bridgePath, args: [], stderr: "pipe" });
let stderrText = "";
transport.stderr?.on("data", (chunk) => (stderrText += chunk));
const client = new Client({ name: "sdk-e2e", version: "1.0.0" });

try {
  await client.connect(transport);
  assert.equal(client.getServerVersion()?.name, "quillon");
  assert.ok(client.getServerCapabilities()?.tools, "the bridge offers tools");

  await client.ping();

  const { tools } = await client.listTools();
  assert.equal(tools.length, 34);
  assert.equal(tools[0].name, "search");
  assert.deepEqual(tools[0].inputSchema.required, ["query"]);
  const screenOpen = tools.find((t) => t.name === "screen_open");
  assert.deepEqual(screenOpen.inputSchema.properties.screens.items.required, ["moment"]);
  for (const tool of tools) {
    assert.equal(tool.inputSchema.type, "object", tool.name);
    assert.ok(tool.description.length > 0, tool.name);
  }

  // A tool call always answers with a tool result, never a JSON-RPC error.
  const result = await client.callTool({ name: "search", arguments: { query: "staging bucket" } });
  assert.ok(Array.isArray(result.content) && result.content.length === 1);
  assert.equal(result.content[0].type, "text");
  assert.equal(typeof result.content[0].text, "string");

  const unknown = await client.callTool({ name: "memory_frobnicate", arguments: {} });
  assert.equal(unknown.isError, true);
  assert.equal(unknown.content[0].text, "Unknown tool: memory_frobnicate");

  // Methods the bridge does not speak are refused with -32601.
  await assert.rejects(client.listResources(), (error) => error.code === -32601);

  await client.close();
  assert.equal(stderrText, "", "the bridge never writes to standard error");
  console.log("SDK client: 1 passed, 0 failed");
} catch (error) {
  console.error("SDK client failed:", error);
  await client.close().catch(() => {});
  process.exit(1);
}
