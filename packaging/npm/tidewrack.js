#!/usr/bin/env node
// Runs the program that was built for this system, in place of this process as far as node can.
"use strict";
const { spawnSync } = require("node:child_process");
const path = require("node:path");

const system = process.platform === "darwin" ? "macos-universal" : `${process.platform}-${process.arch}`;
const program = path.join(__dirname, "..", "native", system, "tidewrack");
const result = spawnSync(program, process.argv.slice(2), { stdio: "inherit" });
if (result.error) {
  console.error(`tidewrack: there is no program for ${process.platform} on ${process.arch} (${result.error.code})`);
  process.exit(1);
}
if (result.signal) process.kill(process.pid, result.signal);
process.exit(result.status ?? 1);
