// A short walk through the bridge as an agent drives it: it starts quillon-mcp with this
// environment (so it reaches the gateway this shell's `make start` started), saves a ticket, lists
// it, reads it whole, patches a word, lists the scopes, and deletes the ticket again so the store
// is left as it was found. Each call and the bridge's answer are printed. The exit status is 1
// when any answer is an error (isError, which is also how an unreachable gateway shows) or the
// bridge misbehaves.
// Usage: node scripts/demo.mjs /path/to/quillon-mcp
import { spawn } from "node:child_process";
import { createInterface } from "node:readline";

const bridgePath = process.argv[2];
if (!bridgePath) {
  console.error("usage: node scripts/demo.mjs /path/to/quillon-mcp");
  process.exit(2);
}

const bridge = spawn(bridgePath, [], { stdio: ["pipe", "pipe", "inherit"], env: process.env });
const waiting = new Map();
let bridgeGone = null;
bridge.on("error", (error) => endAll(`cannot start ${bridgePath}: ${error.message}`));
bridge.on("exit", (code, signal) => endAll(`the bridge exited (${signal ?? `status ${code}`})`));
// A bridge that went away mid-write is reported by the exit above.
bridge.stdin.on("error", () => {});
createInterface({ input: bridge.stdout }).on("line", (line) => {
  let message;
  try {
    message = JSON.parse(line);
  } catch {
    return endAll(`the bridge wrote a line that is not JSON: ${line}`);
  }
  const pending = waiting.get(message.id);
  if (!pending) return;
  waiting.delete(message.id);
  pending.resolve(message);
});

function endAll(reason) {
  bridgeGone ??= reason;
  for (const pending of waiting.values()) pending.reject(new Error(reason));
  waiting.clear();
}

let nextId = 1;
function request(method, params) {
  if (bridgeGone) return Promise.reject(new Error(bridgeGone));
  const id = nextId++;
  return new Promise((resolve, reject) => {
    waiting.set(id, { resolve, reject });
    bridge.stdin.write(JSON.stringify({ jsonrpc: "2.0", id, method, params }) + "\n");
  });
}

class DemoFailure extends Error {}

// One tool call, printed with its answer; an error answer ends the demo.
async function call(name, args) {
  console.log(`\n→ ${name} ${JSON.stringify(args)}`);
  const reply = await request("tools/call", { name, arguments: args });
  if (reply.error) throw new DemoFailure(`${name}: JSON-RPC error ${JSON.stringify(reply.error)}`);
  const text = (reply.result?.content ?? []).map((part) => part.text ?? "").join("\n");
  console.log(text.replace(/^/gm, "  "));
  if (!reply.result || reply.result.isError === true) throw new DemoFailure(`${name} answered with an error`);
  return text;
}

const ticket = "Demo ticket: try the Quillon bridge from a terminal script";
let savedId = null;
let failed = false;
try {
  const hello = await request("initialize", {
    protocolVersion: "2025-06-18",
    capabilities: {},
    clientInfo: { name: "quillon-demo", version: "1.0.0" },
  });
  if (hello.error) throw new DemoFailure(`initialize: ${JSON.stringify(hello.error)}`);
  console.log(`connected to ${hello.result.serverInfo.name} ${hello.result.serverInfo.version}`);
  bridge.stdin.write(JSON.stringify({ jsonrpc: "2.0", method: "notifications/initialized" }) + "\n");

  const saved = await call("memory_add", {
    text: ticket,
    why: "Shows a newcomer what the bridge does with a note",
    type: "ticket",
    scope: "/demo",
    filters: { status: "queued" },
  });
  savedId = saved.match(/\bm:\d+\b/)?.[0] ?? null;
  if (!savedId) throw new DemoFailure("memory_add did not say the new memory's id (m:<n>)");

  const listed = await call("memory_get_by_type", { type: "ticket", scope: "/demo" });
  if (!new RegExp(`\\b${savedId}\\b`).test(listed)) throw new DemoFailure(`${savedId} is not among the tickets`);

  await call("grab", { id: savedId });
  await call("memory_patch", { id: savedId, find: "terminal", replace: "shell" });
  await call("scope_list_all", {});
} catch (error) {
  failed = true;
  console.error(`\ndemo failed: ${error.message}`);
}

// Whatever happened above, a ticket the demo saved does not stay in the user's store.
if (savedId) {
  try {
    await call("memory_delete", { id: savedId });
    const left = await call("memory_get_by_type", { type: "ticket", scope: "/demo" });
    if (new RegExp(`\\b${savedId}\\b`).test(left)) throw new DemoFailure(`${savedId} is still listed after the delete`);
  } catch (error) {
    failed = true;
    console.error(`\ndemo failed: ${error.message}`);
  }
}

bridge.stdin.end();
if (!failed) console.log("\ndemo passed: every call was answered without an error.");
process.exitCode = failed ? 1 : 0;
