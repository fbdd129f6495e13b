// Checks run inside the report page by the browser test (appended to a copy of the page): every
// text's contrast against what is behind it, as rendered, and that every control can be reached
// and used from the keyboard. The results go into a pre element, #page-checks, as JSON.
(function () {
  'use strict';

  function channel(c) { c /= 255; return c <= 0.03928 ? c / 12.92 : Math.pow((c + 0.055) / 1.055, 2.4); }
  function rgba(text) {
    var m = text.match(/rgba?\(([^)]+)\)/);
    if (!m) return null;
    var p = m[1].split(',').map(function (x) { return parseFloat(x); });
    return { r: p[0], g: p[1], b: p[2], a: p.length > 3 ? p[3] : 1 };
  }
  function luminance(c) { return 0.2126 * channel(c.r) + 0.7152 * channel(c.g) + 0.0722 * channel(c.b); }
  function ratio(a, b) {
    var x = luminance(a), y = luminance(b);
    return (Math.max(x, y) + 0.05) / (Math.min(x, y) + 0.05);
  }
  function background(node) {
    for (; node && node.nodeType === 1; node = node.parentElement) {
      var c = rgba(getComputedStyle(node).backgroundColor);
      if (c && c.a > 0) return c;
    }
    return { r: 255, g: 255, b: 255, a: 1 };
  }
  function visible(node) { return node.getClientRects().length > 0 && getComputedStyle(node).visibility !== 'hidden'; }
  function ownText(node) {
    for (var c = node.firstChild; c; c = c.nextSibling) if (c.nodeType === 3 && c.textContent.trim()) return true;
    return false;
  }

  function contrast() {
    var failures = [], checked = 0;
    document.querySelectorAll('body *').forEach(function (node) {
      if (!ownText(node) || !visible(node) || node.closest('script, style, noscript')) return;
      var style = getComputedStyle(node), size = parseFloat(style.fontSize), bold = parseInt(style.fontWeight, 10) >= 700;
      var need = size >= 24 || (bold && size >= 18.66) ? 3 : 4.5;
      var r = ratio(rgba(style.color), background(node));
      checked++;
      if (r < need) failures.push(node.tagName.toLowerCase() + '.' + node.className + ' "' + node.textContent.trim().slice(0, 30) + '": ' + r.toFixed(2));
    });
    return { checked: checked, failures: failures };
  }

  function keyboard() {
    var failures = [];
    document.querySelectorAll('summary, button, input, a[href], select, textarea').forEach(function (node) {
      if (visible(node) && node.tabIndex < 0) failures.push(node.outerHTML.slice(0, 80) + ' cannot be reached with Tab');
    });
    var map = document.getElementById('heatmap');
    if (map && !map.closest('[hidden]')) {
      var stops = map.querySelectorAll('[tabindex="0"]');
      if (stops.length !== 1) failures.push('the heat map has ' + stops.length + ' tab stops, not one');
      var readout = document.getElementById('heat-readout').textContent;
      stops[0].focus();
      map.dispatchEvent(new KeyboardEvent('keydown', { key: 'ArrowRight', bubbles: true }));
      map.dispatchEvent(new KeyboardEvent('keydown', { key: 'ArrowDown', bubbles: true }));
      if (document.activeElement === stops[0] || !map.contains(document.activeElement))
        failures.push('the arrow keys do not move through the heat map');
      if (document.getElementById('heat-readout').textContent === readout) failures.push('the heat map readout does not follow the keys');
    }
    var toggle = document.querySelector('.steps .toggle');
    if (toggle) {
      var detail = document.getElementById(toggle.getAttribute('aria-controls'));
      toggle.click();
      if (!detail.hidden || toggle.getAttribute('aria-expanded') !== 'false') failures.push('the findings toggle does not close its findings');
      toggle.click();
      if (detail.hidden) failures.push('the findings toggle does not open its findings again');
    }
    return { failures: failures };
  }

  window.addEventListener('load', function () {
    document.getElementById('expand-all').click(); // every file open: its rows are checked too
    setTimeout(function () {
      var out = document.createElement('pre');
      out.id = 'page-checks';
      out.textContent = JSON.stringify({ contrast: contrast(), keyboard: keyboard() });
      document.body.appendChild(out);
    }, 100);
  });
})();
