// Shared by both console pages. Loaded as a classic script so the pages work
// without a module loader; everything hangs off one global.
(function () {
  'use strict';

  // The server writes the per-run token into the page; a page opened from
  // anywhere else (or a stale copy) has none and its POSTs are refused.
  function token() {
    const meta = document.querySelector('meta[name="bvgeo-token"]');
    return meta ? meta.content : '';
  }

  async function getJson(path) {
    const response = await fetch(path, { cache: 'no-store', headers: { Accept: 'application/json' } });
    if (!response.ok) throw new Error(`${path}: HTTP ${response.status}`);
    return response.json();
  }

  async function postJson(path, body) {
    const response = await fetch(path, {
      method: 'POST',
      cache: 'no-store',
      headers: { 'Content-Type': 'application/json', Accept: 'application/json', 'X-BVGeo-Token': token() },
      body: JSON.stringify(body),
    });
    if (!response.ok) throw new Error(`${path}: HTTP ${response.status}`);
    return response.json();
  }

  // Only text ever reaches the page from server data, so a fence or log line
  // that looks like markup stays text.
  function el(tag, attrs, ...children) {
    const node = document.createElement(tag);
    for (const [key, value] of Object.entries(attrs || {})) node.setAttribute(key, value);
    for (const child of children) node.append(child);
    return node;
  }

  window.bvgeoCommon = Object.freeze({ token, getJson, postJson, el });
})();
