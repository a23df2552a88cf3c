// The live view's page and its script.
#include "live_page.h"

namespace demo
{

const char kLivePage[] = R"(<!doctype html>
<html><head><meta charset="utf-8"><title>Tarvo camera</title>
<style>
body { font-family: sans-serif; margin: 1em; background: #222; color: #eee; }
#view { position: relative; width: 640px; height: 480px; }
#view > * { position: absolute; left: 0; top: 0; }
</style></head>
<body>
<h1>Tarvo camera: live view</h1>
<div id="view"><img id="live" src="/stream.mjpg" width="640" height="480" alt="live view">
<canvas id="overlay" width="640" height="480"></canvas></div>
<p id="status">waiting for the first frame</p>
<h2>Events</h2><ol id="events"></ol>
<script>
'use strict';
const demo = window.demo = { framesSeen: 0, overlay: null, events: [] };
const live = document.getElementById('live');
const overlay = document.getElementById('overlay').getContext('2d');
const probe = document.createElement('canvas').getContext('2d', { willReadFrequently: true });
let lastSignature = null;

// A frame arrived when the picture changed: sample it small and compare.
function countFrame() {
  if (!live.complete || !live.naturalWidth) return;
  probe.drawImage(live, 0, 0, 80, 60);
  const pixels = probe.getImageData(0, 0, 80, 60).data;
  let signature = 0;
  for (let i = 0; i < pixels.length; i += 4) signature = (signature * 31 + pixels[i]) >>> 0;
  if (signature !== lastSignature) { lastSignature = signature; demo.framesSeen++; }
}

// Changed blocks in red, their bounding box around them.
function drawOverlay(state) {
  const size = 640 / state.columns;
  overlay.clearRect(0, 0, 640, 480);
  overlay.fillStyle = 'rgba(255, 0, 0, 0.35)';
  let box = null;
  for (const block of state.changed) {
    const x = (block % state.columns) * size, y = Math.floor(block / state.columns) * size;
    overlay.fillRect(x, y, size, size);
    box = box ? { left: Math.min(box.left, x), top: Math.min(box.top, y),
                  right: Math.max(box.right, x + size), bottom: Math.max(box.bottom, y + size) }
              : { left: x, top: y, right: x + size, bottom: y + size };
  }
  if (box) {
    overlay.strokeStyle = 'yellow';
    overlay.strokeRect(box.left, box.top, box.right - box.left, box.bottom - box.top);
  }
  demo.overlay = box;
}

function listEvents(events) {
  demo.events = events;
  document.getElementById('events').innerHTML = events.map(event =>
    `<li>event ${event.number} at ${new Date(event.time * 1000).toLocaleTimeString()}:
     ${event.blocks} blocks changed</li>`).join('');
}

async function poll() {
  try {
    const state = await (await fetch('/state', { cache: 'no-store' })).json();
    drawOverlay(state);
    listEvents(state.events);
    document.getElementById('status').textContent =
      `frame ${state.captured}, motion ${state.changed.length} blocks, ` +
      `${state.events.length} events, ${state.viewers} viewers`;
  } catch (error) {
    document.getElementById('status').textContent = 'no answer from the camera';
  }
  setTimeout(poll, 100);
}

setInterval(countFrame, 40);
poll();
</script>
</body></html>
)";

} // namespace demo
