// Map page: the device, the zone it is in and that zone's fences, redrawn from
// scratch whenever something may have changed so a redraw can never leave a
// stale or doubled shape behind.
(function () {
  'use strict';

  const { getJson } = window.bvgeoCommon;
  const POLL_MS = 1000;
  const ZONE_STYLE = { stroke: false, fill: true, fillColor: '#ff00ff', fillOpacity: 0.1, interactive: false };
  const FENCE_STYLE = { stroke: false, fill: true, fillColor: '#00ff00', fillOpacity: 0.4, interactive: false };
  const DEVICE_STYLE = {
    pane: 'device', radius: 7, color: '#ffffff', weight: 2, fillColor: '#1f6feb', fillOpacity: 1, interactive: false,
  };
  const OUTLINE_STYLE = { color: '#8c8c8c', weight: 0.6, fillColor: '#f3f0e6', fillOpacity: 1 };

  const mapElement = document.getElementById('map');
  const positionText = document.getElementById('position');
  const statusText = document.getElementById('status');

  // The leaflet.css guess of the icon folder depends on where the stylesheet
  // sits; say it outright so pins never point at a missing image.
  L.Icon.Default.imagePath = '/assets/leaflet/images/';

  const map = L.map(mapElement, { worldCopyJump: true }).setView([0, 0], 2);
  // Outlines sit between tiles (200) and overlays (400); the device dot gets a
  // pane of its own above the overlays so it is never hidden by a fence.
  map.createPane('outlines').style.zIndex = '250';
  map.createPane('device').style.zIndex = '450';
  L.control.scale().addTo(map);
  const overlays = L.featureGroup().addTo(map);

  let baseMap = 'none';
  let fitted = false;
  let draws = 0;
  let drawnPositionId;
  let generation = 0;

  function showBaseMap(tileUrlTemplate) {
    if (baseMap !== 'none') return;
    if (typeof tileUrlTemplate === 'string' && tileUrlTemplate !== '') {
      L.tileLayer(tileUrlTemplate, { maxZoom: 19 }).addTo(map);
      setBaseMap('tiles');
      return;
    }
    setBaseMap('loading');
    mapElement.classList.add('offline');
    getJson('/assets/countries-50m.json')
      .then((topology) => {
        const countries = topojson.feature(topology, topology.objects.countries);
        // One canvas for all outlines: thousands of SVG paths would make
        // every pan and zoom sluggish, and the outlines take no clicks anyway.
        L.geoJSON(countries, {
          pane: 'outlines',
          interactive: false,
          renderer: L.canvas({ pane: 'outlines' }),
          style: OUTLINE_STYLE,
        }).addTo(map);
        setBaseMap('outlines');
      })
      .catch((error) => {
        setBaseMap('failed');
        showStatus(`Base map unavailable: ${error.message}`);
      });
  }

  function setBaseMap(state) {
    baseMap = state;
    mapElement.dataset.baseMap = state;
  }

  function showStatus(text) {
    statusText.textContent = text;
  }

  function coordinate(value) {
    return String(Number(value.toFixed(6)));
  }

  function isLatLng(latitude, longitude) {
    return Number.isFinite(latitude) && Number.isFinite(longitude) && Math.abs(latitude) <= 90;
  }

  function usablePosition(position) {
    return position && isLatLng(position.latitude, position.longitude) ? position : null;
  }

  function showPosition(position) {
    positionText.textContent = usablePosition(position)
      ? `Position: ${coordinate(position.latitude)}, ${coordinate(position.longitude)}`
      : 'Position: unknown';
  }

  function drawOverlays(data) {
    overlays.clearLayers();
    for (const fence of Array.isArray(data.fences) ? data.fences : []) {
      if (!isLatLng(fence.latitude, fence.longitude)) continue;
      const at = [fence.latitude, fence.longitude];
      if (Array.isArray(fence.polygons) && fence.polygons.length > 0) {
        // A polygon fence: its polygons with their holes, in place of the circle.
        L.polygon(fence.polygons, { ...FENCE_STYLE, bvgeoFence: true }).addTo(overlays);
      } else if (fence.radius > 0) {
        L.circle(at, { ...FENCE_STYLE, radius: fence.radius }).addTo(overlays);
      }
      const title = String(fence.title ?? fence.name ?? '');
      L.marker(at).bindPopup(document.createTextNode(title)).addTo(overlays);
    }
    const corners = data.zone && Array.isArray(data.zone.corners) ? data.zone.corners : [];
    if (corners.length === 4 && corners.every((c) => Array.isArray(c) && isLatLng(c[0], c[1]))) {
      L.polygon(corners, ZONE_STYLE).addTo(overlays);
    }
    const position = usablePosition(data.position);
    if (position) L.circleMarker([position.latitude, position.longitude], DEVICE_STYLE).addTo(overlays);
    follow(position);
    drawnPositionId = position ? position.id : null;
    showPosition(position);
    draws += 1;
    mapElement.dataset.draws = String(draws);
  }

  // The first drawing picks a zoom that shows everything around the device;
  // later ones only move, so a zoom the user chose is kept.
  function follow(position) {
    const bounds = overlays.getBounds();
    if (!position) {
      if (!fitted && bounds.isValid()) {
        map.fitBounds(bounds, { padding: [24, 24], maxZoom: 17, animate: false });
        fitted = true;
      }
      return;
    }
    const here = L.latLng(position.latitude, position.longitude);
    if (fitted) {
      map.panTo(here);
      return;
    }
    // Mirror the overlays' box through the device so centring on the device
    // keeps all of them in view.
    const around = L.latLngBounds([here, here]);
    if (bounds.isValid()) {
      for (const corner of [bounds.getSouthWest(), bounds.getNorthEast()]) {
        around.extend(corner);
        around.extend([2 * here.lat - corner.lat, 2 * here.lng - corner.lng]);
      }
    }
    const zoom = around.getNorthEast().equals(around.getSouthWest())
      ? 16
      : Math.min(map.getBoundsZoom(around, false, L.point(24, 24)), 17);
    map.setView(here, zoom, { animate: false });
    fitted = true;
  }

  async function refresh() {
    const mine = ++generation;
    try {
      const data = await getJson('/api/map');
      // An answer that was overtaken by a newer request would draw old data.
      if (mine !== generation) return;
      showBaseMap(data.tileUrlTemplate);
      drawOverlays(data);
      showStatus('');
    } catch (error) {
      if (mine === generation) showStatus(`Console not reachable: ${error.message}`);
    }
  }

  async function poll() {
    try {
      const { position } = await getJson('/api/position');
      const id = usablePosition(position) ? position.id : null;
      // Also retries a first load that failed: nothing is drawn yet then.
      if (id !== drawnPositionId) await refresh();
    } catch (error) {
      showStatus(`Console not reachable: ${error.message}`);
    } finally {
      setTimeout(poll, POLL_MS);
    }
  }

  function layersOnMap() {
    const found = { squares: [], circles: [], pins: [], dots: [], polygons: [] };
    map.eachLayer((layer) => {
      if (layer instanceof L.Polygon && layer.options.bvgeoFence) found.polygons.push(layer);
      else if (layer instanceof L.Polygon && layer.options.pane === 'overlayPane') found.squares.push(layer);
      else if (layer instanceof L.Circle) found.circles.push(layer);
      else if (layer instanceof L.CircleMarker) found.dots.push(layer);
      else if (layer instanceof L.Marker) found.pins.push(layer);
    });
    return found;
  }

  // Read-only view for the browser tests; it looks at what is on the map, not
  // at this file's bookkeeping, so a leaked layer shows up.
  window.bvgeoConsole = Object.freeze({
    draws: () => draws,
    baseMap: () => baseMap,
    counts() {
      const found = layersOnMap();
      return { squares: found.squares.length, circles: found.circles.length, pins: found.pins.length, dots: found.dots.length };
    },
    // Per polygon fence drawn: its polygons, each a list of rings of [lat, lng].
    polygons: () => layersOnMap().polygons.map((p) => {
      const rings = p.getLatLngs();
      const parts = Array.isArray(rings[0]) && Array.isArray(rings[0][0]) ? rings : [rings];
      return parts.map((part) => part.map((ring) => ring.map((q) => [q.lat, q.lng])));
    }),
    zoneCorners() {
      const square = layersOnMap().squares[0];
      return square ? square.getLatLngs()[0].map((p) => [p.lat, p.lng]) : null;
    },
    circles: () => layersOnMap().circles.map((c) => ({ lat: c.getLatLng().lat, lng: c.getLatLng().lng, radius: c.getRadius() })),
    pins: () => layersOnMap().pins.map((p) => ({ lat: p.getLatLng().lat, lng: p.getLatLng().lng, title: p.getPopup().getContent().textContent })),
    center: () => [map.getCenter().lat, map.getCenter().lng],
    zoom: () => map.getZoom(),
  });

  document.getElementById('refresh').addEventListener('click', refresh);
  refresh().finally(poll);
})();
