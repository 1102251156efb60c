// The data that the page carries.

import { byId } from "./dom.js";

export const facts = JSON.parse(byId("facts").textContent);

const CHARACTERS = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz!#$%:()*+-;,=.?@^_`{|}~";

export function fromBase64(text) {
  const binary = atob(text);
  const bytes = new Uint8Array(binary.length);
  for (let i = 0; i < binary.length; i++) bytes[i] = binary.charCodeAt(i);
  return bytes;
}

/** Base 85 with ",", "." and ":" in the place of "<", ">" and "&". */
export function fromBase85(packed) {
  const missing = (5 - (packed.length % 5)) % 5;
  const text = packed + "~".repeat(missing);
  const values = new Uint8Array(128);
  for (let i = 0; i < CHARACTERS.length; i++) values[CHARACTERS.charCodeAt(i)] = i;
  const bytes = new Uint8Array((text.length / 5) * 4);
  const view = new DataView(bytes.buffer);
  for (let i = 0, at = 0; i < text.length; i += 5, at += 4) {
    let word = 0;
    for (let j = i; j < i + 5; j++) word = word * 85 + values[text.charCodeAt(j)];
    view.setUint32(at, word);
  }
  return bytes.subarray(0, bytes.length - missing);
}

export const canUnpack = () => typeof DecompressionStream === "function";

/** Text from raw deflate. */
export async function inflate(bytes) {
  const stream = new DecompressionStream("deflate-raw");
  const writer = stream.writable.getWriter();
  writer.write(bytes).catch(() => {});
  writer.close().catch(() => {});
  return new Response(stream.readable).text();
}

export async function readSeries() {
  return JSON.parse(await inflate(fromBase64(byId("series").textContent)));
}
