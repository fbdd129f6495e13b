// The report page: reads the run's data (the JSON in #pc-data) and shows it. Files are listed
// failed first; a file's steps are rendered when it is opened, a few hundred rows at a time, so
// a run of thousands of files and a hundred thousand steps stays quick to open.
(function () {
  'use strict';

  var ROWS_AT_ONCE = 500;        // step rows rendered per click of "show more"
  var FILES_OPEN_AT_FIRST = 20;  // failing files opened when the page loads
  var HEAT_BLOCK = 79;           // types per block of the heat map (four blocks hold 315)
  var ROW = { number: 0, line: 1, kind: 2, table: 3, label: 4, status: 5, mismatches: 6, valueErrors: 7, duration: 8 };

  // A byte of a name or value that is not UTF-8 travels as U+EF00 + the byte; the page shows it,
  // and a control character other than a line break or tab, as \xNN, the form TAP gives them.
  var UNSHOWN = /[\u0000-\u0008\u000b-\u001f\uEF00-\uEF1F\uEF80-\uEFFF]/g;
  var UNSHOWN_IN_DATA = /\\u00[01][0-9a-f]|[\uEF00-\uEF1F\uEF80-\uEFFF]/;
  function shownBytes(v) {
    if (typeof v === 'string') return v.replace(UNSHOWN, function (c) {
      var code = c.charCodeAt(0);
      return '\\x' + (code >= 0xEF00 ? code - 0xEF00 : code).toString(16).padStart(2, '0');
    });
    if (Array.isArray(v)) return v.map(shownBytes);
    if (v && typeof v === 'object') Object.keys(v).forEach(function (k) { v[k] = shownBytes(v[k]); });
    return v;
  }
  var dataText = document.getElementById('pc-data').textContent;
  var data = JSON.parse(dataText);
  if (UNSHOWN_IN_DATA.test(dataText)) data = shownBytes(data);
  var files = data.files.map(function (f, i) { f.index = i; return f; });
  var view = { failedOnly: false, search: '' };

  // ---- small helpers -------------------------------------------------------------------------

  function el(tag, attrs, children) {
    var node = document.createElement(tag);
    if (attrs) Object.keys(attrs).forEach(function (k) {
      if (k === 'text') node.textContent = attrs[k];
      else if (k === 'className') node.className = attrs[k];
      else node.setAttribute(k, attrs[k]);
    });
    (children || []).forEach(function (c) { if (c != null) node.appendChild(typeof c === 'string' ? document.createTextNode(c) : c); });
    return node;
  }

  function plural(n, word, many) { return n + ' ' + (n === 1 ? word : (many || word + 's')); }

  function duration(ms) {
    if (ms < 1) return ms.toFixed(2) + ' ms';
    if (ms < 1000) return Math.round(ms) + ' ms';
    if (ms < 60000) return (ms / 1000).toFixed(2) + ' s';
    return Math.floor(ms / 60000) + ' min ' + Math.round((ms % 60000) / 1000) + ' s';
  }

  function statusWord(status) { return status === 'not_run' ? 'not run' : status === 'timed_out' ? 'timed out' : status; }

  function badge(status) {
    return el('span', { className: 'badge status-' + status, text: statusWord(status) });
  }

  function failing(f) { return f.status !== 'passed' && f.status !== 'skipped' && f.status !== 'flaky'; }
  function rowFailing(file, i) { return Object.prototype.hasOwnProperty.call(file.details, i); }

  // A long command line (a suite's thousands of files) is shown cut, and whole when opened.
  function commandNode(command) {
    var text = command.join(' ') || '(no command line)';
    if (text.length <= 300) return el('code', { text: text });
    return el('details', { className: 'command' }, [
      el('summary', null, [el('code', { text: text.slice(0, 200) + ' … (' + plural(command.length, 'argument') + ')' })]),
      el('code', { text: text })]);
  }

  function fileParts(run) {
    var parts = [];
    if (run.failed_files) parts.push(run.failed_files + ' failed');
    if (run.skipped_files) parts.push(run.skipped_files + ' skipped');
    var flaky = files.filter(function (f) { return f.status === 'flaky'; }).length;
    var slow = files.filter(function (f) { return f.slow; }).length;
    if (flaky) parts.push(flaky + ' flaky');
    if (slow) parts.push(slow + ' slow');
    return parts.length ? ' (' + parts.join(', ') + ')' : '';
  }

  // ---- header --------------------------------------------------------------------------------

  // The findings that expect: accounted for, beside the verdict: a pass with a mismatch in the
  // totals reads as the pass it is ("PASSED · 1 expected mismatch").
  function expectedNote(run) {
    if (!run.expected) return '';
    var what = !run.value_errors ? plural(run.expected, 'expected mismatch', 'expected mismatches')
      : !run.mismatches ? plural(run.expected, 'expected value error') : plural(run.expected, 'expected finding');
    return ' · ' + what;
  }

  function renderHeader() {
    var run = data.run;
    var verdict = document.getElementById('verdict');
    verdict.textContent = run.verdict.toUpperCase();
    verdict.className = 'verdict status-' + run.verdict;
    var note = expectedNote(run);
    document.getElementById('verdict-note').textContent = note;
    document.title = run.verdict.toUpperCase() + note + ': planecheck report, ' + plural(run.files, 'file');
    var totals = [
      ['files', run.files + fileParts(run), 'files'],
      ['steps', run.steps, 'steps'], ['not run', run.not_run, 'not_run'], ['mismatches', run.mismatches, 'mismatches'],
      ['value errors', run.value_errors, 'value_errors'], ['duration', duration(run.duration), 'duration']];
    if (run.expected) totals.push(['accounted for by expect:', run.expected, 'expected']);
    var dl = document.getElementById('totals');
    totals.forEach(function (t) {
      dl.appendChild(el('div', { 'data-total': t[2] }, [el('dt', { text: t[0] }), el('dd', { text: String(t[1]) })]));
    });
    var info = document.getElementById('run-info');
    run.streams.forEach(function (s) {
      var line = el('p', null, [commandNode(s.command)]);
      var where = [];
      if (s.host) where.push('on ' + s.host);
      if (s.started) where.push('started ' + s.started);
      if (s.platform) where.push('platform ' + s.platform);
      if (s.version) where.push('planecheck ' + s.version);
      if (!s.finished) where.push('the event stream ' + s.source + ' stops before the run ended');
      line.appendChild(document.createTextNode(' ' + where.join(', ')));
      info.appendChild(line);
    });
    if (run.problems.length) {
      var list = document.getElementById('problem-list');
      run.problems.forEach(function (p) { list.appendChild(el('li', { className: 'mono', text: p })); });
      document.getElementById('problems').hidden = false;
    }
    document.getElementById('made').textContent = 'Made by planecheck report' + (run.made ? ' at ' + run.made : '') +
      ' from ' + plural(run.streams.length, 'event stream') + '.';
  }

  // ---- values: expected beside received, the differing part marked -----------------------------

  function markedValue(text, from, to) {
    var code = el('code');
    code.appendChild(document.createTextNode(text.slice(0, from)));
    if (to > from) code.appendChild(el('mark', { text: text.slice(from, to) }));
    code.appendChild(document.createTextNode(text.slice(to)));
    return code;
  }

  function valuePair(expected, received) {
    var start = 0;
    while (start < expected.length && start < received.length && expected[start] === received[start]) start++;
    var endE = expected.length, endR = received.length;
    while (endE > start && endR > start && expected[endE - 1] === received[endR - 1]) { endE--; endR--; }
    return el('dl', { className: 'values' }, [
      el('dt', { text: 'expected' }), el('dd', { className: 'expected' }, [markedValue(expected, start, endE)]),
      el('dt', { text: 'received' }), el('dd', { className: 'received' }, [markedValue(received, start, endR)])]);
  }

  function findingNode(file, f) {
    var node = el('div', { className: 'finding finding-' + f.kind }, [
      el('span', { className: 'where mono', text: file.path + (f.line ? ':' + f.line + (f.column ? ':' + f.column : '') : '') + ': ' }),
      el('span', { className: 'mono', text: f.text })]);
    if (f.expected !== undefined) {
      if (f.attribute) node.appendChild(el('div', { className: 'attribute', text: f.attribute }));
      node.appendChild(valuePair(f.expected, f.received));
    }
    return node;
  }

  function excerptNode(excerpt, marked) {
    if (!excerpt[0]) return el('p', { className: 'excerpt-missing', text: 'The scenario file could not be read when the report was made.' });
    var box = el('div', { className: 'excerpt mono', role: 'region', 'aria-label': 'scenario lines ' + excerpt[0] + ' to ' +
                          (excerpt[0] + excerpt[1].length - 1) });
    excerpt[1].forEach(function (text, i) {
      var number = excerpt[0] + i;
      box.appendChild(el('div', { className: marked[number] ? 'here' : '' }, [el('span', { className: 'ln', text: String(number) }), text]));
    });
    return box;
  }

  function detailNode(file, row) {
    var detail = file.details[row];
    var marked = {};
    marked[file.rows[row][ROW.line]] = true;
    var box = el('div');
    detail.findings.forEach(function (f) { marked[f.line] = true; box.appendChild(findingNode(file, f)); });
    if (!detail.findings.length) box.appendChild(el('p', { className: 'file-note', text: 'The step ' + statusWord(file.rows[row][ROW.status]) + ' without a finding of its own.' }));
    box.appendChild(excerptNode(detail.excerpt, marked));
    return box;
  }

  // ---- files and their steps ------------------------------------------------------------------

  function haystack(file) {
    if (file.text === undefined) {
      var parts = [file.path, file.name, file.error, file.last_error];
      file.findings.forEach(function (f) { parts.push(f.text); });
      file.text = parts.join('\n').toLowerCase();
      file.rowText = [];
    }
    return file.text;
  }

  function rowText(file, i) {
    if (file.rowText[i] === undefined) {
      var r = file.rows[i], parts = [r[ROW.label], r[ROW.table], r[ROW.kind], r[ROW.status]];
      if (rowFailing(file, i)) file.details[i].findings.forEach(function (f) {
        parts.push(f.text, f.attribute || '', f.expected || '', f.received || '');
      });
      file.rowText[i] = parts.join('\n').toLowerCase();
    }
    return file.rowText[i];
  }

  // The rows of a file the view shows: all of them, or those that failed, or those matching the search.
  function shownRows(file) {
    var rows = [], q = view.search, whole = q && haystack(file).indexOf(q) >= 0;
    for (var i = 0; i < file.rows.length; i++) {
      if (view.failedOnly && !rowFailing(file, i) && file.rows[i][ROW.status] === 'passed') continue;
      if (q && !whole && rowText(file, i).indexOf(q) < 0) continue;
      rows.push(i);
    }
    return rows;
  }

  function fileShown(file) {
    if (view.failedOnly && !failing(file)) return false;
    if (!view.search) return true;
    if (haystack(file).indexOf(view.search) >= 0) return true;
    for (var i = 0; i < file.rows.length; i++) if (rowText(file, i).indexOf(view.search) >= 0) return true;
    return false;
  }

  function fileCounts(f) {
    var parts = [plural(f.steps, 'step')];
    if (f.failed_steps) parts.push(f.failed_steps + ' failed');
    if (f.not_run) parts.push(f.not_run + ' not run');
    if (f.mismatches) parts.push(plural(f.mismatches, 'mismatch', 'mismatches'));
    if (f.value_errors) parts.push(plural(f.value_errors, 'value error'));
    parts.push(duration(f.duration));
    return parts.join(' · ');
  }

  // The last error names the place the banner gave already ("FILE:4: unknown table ..."): once is enough.
  function withoutPlace(text, place) {
    return place && text.indexOf(place + ': ') === 0 ? text.slice(place.length + 2) : text;
  }

  // An invalid file's error is the finding of the step it stopped at, shown there with its lines.
  function stepTellsError(f) {
    if (!f.error) return false;
    return Object.keys(f.details).some(function (row) {
      return f.details[row].findings.some(function (x) {
        return f.path + ':' + x.line + (x.column ? ':' + x.column : '') + ': ' + x.text === f.error;
      });
    });
  }

  function fileNotes(f) {
    var notes = [];
    var errorInStep = stepTellsError(f);
    if (f.error && !errorInStep) notes.push(el('p', { className: 'file-note mono status-invalid', text: f.error }));
    if (f.ended_how) notes.push(el('p', { className: 'file-note status-ended', text:
      (f.status === 'timed_out' ? 'Timed out after ' + duration(f.duration) + ' (' + f.ended_how + ')' : 'The library ended the run with ' + f.ended_how) +
      (f.ended_at ? ' at ' + f.ended_at : '') + (f.last_error ? ': ' + withoutPlace(f.last_error, f.ended_at) : '') }));
    if (f.attempts > 1) notes.push(el('p', { className: 'file-note status-' + f.status, text: (f.status === 'flaky' ? 'Flaky: passed on attempt ' :
      'Ran ') + f.attempts + (f.status === 'flaky' ? '' : ' times') + '; ' + f.failed_attempts.map(function (m, i) {
        return 'attempt ' + (i + 1) + ' failed: ' + m; }).join('; ') }));
    if (f.slow) notes.push(el('p', { className: 'file-note status-slow', text: 'Slow: it ran ' + duration(f.duration) }));
    if (f.reason) notes.push(el('p', { className: 'file-note status-' + f.status, text:
      (f.status === 'skipped' ? 'Skipped, nothing in it was tested: ' : '') + f.reason }));
    if (!f.finished) notes.push(el('p', { className: 'file-note status-ended', text: 'The event stream stops before this file ended.' }));
    f.findings.forEach(function (x) { notes.push(findingNode(f, x)); });
    if (f.excerpt[0] && !errorInStep) {
      var marked = {};
      marked[f.excerpt[0] + Math.min(2, f.excerpt[1].length - 1)] = true;
      notes.push(excerptNode(f.excerpt, marked));
    }
    return notes;
  }

  function stepRow(file, i) {
    var r = file.rows[i];
    var cells = [
      el('td', { className: 'num', text: String(r[ROW.number]) }), el('td', { className: 'num', text: String(r[ROW.line]) }),
      el('td', { text: r[ROW.kind] }), el('td', { className: 'mono', text: r[ROW.table] }),
      el('td', null, [badge(r[ROW.status])]), el('td', { className: 'num', text: String(r[ROW.mismatches]) }),
      el('td', { className: 'num', text: String(r[ROW.valueErrors]) }), el('td', { className: 'num', text: duration(r[ROW.duration]) })];
    var tr = el('tr', { 'data-step': String(r[ROW.number]), 'data-status': r[ROW.status] }, cells);
    if (!rowFailing(file, i)) return [tr];
    var detail = el('tr', { className: 'detail', id: 'f' + file.index + '-s' + i }, [el('td', { colspan: '8' }, [detailNode(file, i)])]);
    var toggle = el('button', { type: 'button', className: 'toggle', 'aria-expanded': 'true', 'aria-controls': detail.id,
                                text: 'findings', 'aria-label': 'findings of step ' + r[ROW.number] });
    toggle.addEventListener('click', function () {
      var open = toggle.getAttribute('aria-expanded') !== 'true';
      toggle.setAttribute('aria-expanded', String(open));
      detail.hidden = !open;
    });
    cells[2].appendChild(document.createTextNode(' '));
    cells[2].appendChild(toggle);
    return [tr, detail];
  }

  function renderRows(file, body, rows, from) {
    var tbody = body.querySelector('tbody');
    var end = Math.min(rows.length, from + ROWS_AT_ONCE);
    for (var k = from; k < end; k++) stepRow(file, rows[k]).forEach(function (tr) { tbody.appendChild(tr); });
    var more = body.querySelector('.more');
    if (more) more.remove();
    if (end < rows.length) {
      var button = el('button', { type: 'button', className: 'more', text: 'Show ' + Math.min(ROWS_AT_ONCE, rows.length - end) +
                                  ' more steps (' + (rows.length - end) + ' left)' });
      button.addEventListener('click', function () {
        renderRows(file, body, rows, end);
        var next = tbody.rows[tbody.rows.length - 1];
        if (next) next.scrollIntoView({ block: 'nearest' });
        var again = body.querySelector('.more');
        (again || body.querySelector('table')).focus();
      });
      body.appendChild(button);
    }
  }

  function renderFileBody(file, details) {
    var old = details.querySelector('.file-body');
    if (old) old.remove();
    var body = el('div', { className: 'file-body' }, fileNotes(file));
    var rows = shownRows(file);
    if (file.rows.length) {
      var head = el('tr', null, ['step', 'line', 'kind', 'table', 'status', 'mismatches', 'value errors', 'duration'].map(function (h) {
        return el('th', { scope: 'col', text: h });
      }));
      body.appendChild(el('table', { className: 'steps', tabindex: '-1' }, [el('thead', null, [head]), el('tbody')]));
      if (rows.length < file.rows.length)
        body.appendChild(el('p', { className: 'file-note', text: (file.rows.length - rows.length) + ' of ' + plural(file.rows.length, 'step') + ' hidden by the filter' }));
      renderRows(file, body, rows, 0);
    }
    details.appendChild(body);
    details.dataset.rendered = 'true';
    file.renderedFor = viewKey();
  }

  function fileNode(file) {
    var summary = el('summary', null, [badge(file.status), file.slow ? badge('slow') : null, el('span', { className: 'path mono', text: file.path }),
      file.name ? el('span', { className: 'name', text: file.name }) : null, el('span', { className: 'counts', text: fileCounts(file) })]);
    var details = el('details', { className: 'file', 'data-file': file.path, 'data-status': file.status }, [summary]);
    details.addEventListener('toggle', function () { if (details.open && !details.dataset.rendered) renderFileBody(file, details); });
    file.node = details;
    return details;
  }

  // The first files are rendered at once, the rest in chunks after the first paint; each new row
  // takes the view that is chosen by then.
  var FIRST_FILES = 150, FILES_PER_CHUNK = 400;

  function renderFiles() {
    var box = document.getElementById('files');
    var ordered = files.filter(failing).concat(files.filter(function (f) { return !failing(f); }));
    var opened = 0;
    function chunk(start, count) {
      var fragment = document.createDocumentFragment();
      ordered.slice(start, start + count).forEach(function (f) {
        fragment.appendChild(fileNode(f));
        f.node.hidden = !fileShown(f);
      });
      box.appendChild(fragment);
      ordered.slice(start, start + count).forEach(function (f) {
        if (failing(f) && !f.node.hidden && opened < FILES_OPEN_AT_FIRST) { opened++; openFile(f); }
      });
      if (start + count < ordered.length) setTimeout(function () { chunk(start + count, FILES_PER_CHUNK); }, 0);
      else document.body.dataset.ready = 'true';
    }
    chunk(0, FIRST_FILES);
  }

  function openFile(f) {
    if (!f.node.dataset.rendered) renderFileBody(f, f.node);
    f.node.open = true;
  }

  // ---- the view: failed only, search; kept in the URL fragment ---------------------------------

  function viewKey() { return view.failedOnly + '\n' + view.search; }

  function readFragment() {
    var fragment = decodeURIComponent(location.hash.replace(/^#/, ''));
    view.failedOnly = false;
    view.search = '';
    fragment.split('&').forEach(function (part) {
      if (part === 'failed') view.failedOnly = true;
      else if (part.indexOf('search=') === 0) view.search = part.slice(7).toLowerCase();
    });
    document.getElementById('failed-only').checked = view.failedOnly;
    document.getElementById('search').value = view.search;
  }

  function writeFragment() {
    var parts = [];
    if (view.failedOnly) parts.push('failed');
    if (view.search) parts.push('search=' + encodeURIComponent(view.search));
    var hash = parts.length ? '#' + parts.join('&') : location.pathname + location.search;
    history.replaceState(null, '', hash);
  }

  function applyView() {
    var shown = 0;
    files.forEach(function (f) {
      var visible = fileShown(f);
      shown += visible;
      if (!f.node) return; // not rendered yet: it takes the view when it is
      f.node.hidden = !visible;
      if (visible && f.node.dataset.rendered && f.renderedFor !== viewKey()) renderFileBody(f, f.node);
      if (visible && view.search && !f.node.open && shown <= FILES_OPEN_AT_FIRST) openFile(f);
    });
    document.getElementById('shown').textContent = shown + ' of ' + plural(files.length, 'file') + ' shown';
    document.body.dataset.view = (view.failedOnly ? 'failed' : 'all') + (view.search ? ' search' : '');
  }

  function wireFilter() {
    var failedOnly = document.getElementById('failed-only'), search = document.getElementById('search'), timer = null;
    failedOnly.addEventListener('change', function () { view.failedOnly = failedOnly.checked; writeFragment(); applyView(); });
    search.addEventListener('input', function () {
      clearTimeout(timer);
      timer = setTimeout(function () { view.search = search.value.trim().toLowerCase(); writeFragment(); applyView(); }, 150);
    });
    window.addEventListener('hashchange', function () { readFragment(); applyView(); });
    document.getElementById('expand-all').addEventListener('click', function () {
      files.forEach(function (f) { if (f.node && !f.node.hidden) openFile(f); });
    });
    document.getElementById('collapse-all').addEventListener('click', function () {
      files.forEach(function (f) { if (f.node) f.node.open = false; });
    });
  }

  // ---- coverage: the heat map of types by operation, families as bars --------------------------

  function heatLevel(n, max) {
    if (!n) return 0;
    return Math.max(1, Math.min(5, Math.ceil(5 * Math.log(n + 1) / Math.log(max + 1))));
  }

  function cellText(type, op, n) { return type[0] + ' · ' + op + ': ' + plural(n, 'record'); }

  function renderHeatmap(cov) {
    var map = document.getElementById('heatmap'), readout = document.getElementById('heat-readout');
    var max = 1;
    cov.types.forEach(function (t) { t[1].forEach(function (n) { if (n > max) max = n; }); });
    var cells = [];  // by [op][type]
    cov.ops.forEach(function () { cells.push([]); });
    for (var start = 0; start < cov.types.length; start += HEAT_BLOCK) {
      var last = Math.min(cov.types.length, start + HEAT_BLOCK);
      var block = el('div', { className: 'heat-block', role: 'rowgroup', 'aria-label': 'types ' + (start + 1) + ' to ' + last },
                     [el('span', { className: 'heat-caption', text: 'types ' + (start + 1) + '–' + last + ': ' + cov.types[start][0] + ' … ' + cov.types[last - 1][0] })]);
      cov.ops.forEach(function (op, o) {
        var row = el('div', { className: 'heat-row', role: 'row' }, [el('span', { className: 'heat-label', role: 'rowheader', text: op })]);
        cov.types.slice(start, start + HEAT_BLOCK).forEach(function (t) {
          var n = t[1][o];
          var cell = el('div', { className: 'cell h' + heatLevel(n, max), role: 'gridcell', title: cellText(t, op, n),
                                 'aria-label': cellText(t, op, n), tabindex: '-1' });
          row.appendChild(cell);
          cells[o].push(cell);
        });
        block.appendChild(row);
      });
      map.appendChild(block);
    }
    var at = { op: 0, type: 0 };
    function focusCell(op, type, move) {
      cells[at.op][at.type].tabIndex = -1;
      cells[at.op][at.type].classList.remove('active');
      at = { op: Math.max(0, Math.min(cov.ops.length - 1, op)), type: Math.max(0, Math.min(cov.types.length - 1, type)) };
      var cell = cells[at.op][at.type];
      cell.tabIndex = 0;
      cell.classList.add('active');
      if (move) cell.focus();
      var t = cov.types[at.type];
      readout.textContent = cellText(t, cov.ops[at.op], t[1][at.op]) + '; ' + t[0] + ' covers ' + t[2] + ' of ' + t[3] +
        ' attributes and ' + t[4] + ' of ' + t[5] + ' reference pairs.';
    }
    focusCell(0, 0, false);
    map.addEventListener('keydown', function (e) {
      var moves = { ArrowLeft: [0, -1], ArrowRight: [0, 1], ArrowUp: [-1, 0], ArrowDown: [1, 0], Home: [0, -at.type],
                    End: [0, cov.types.length], PageUp: [0, -HEAT_BLOCK], PageDown: [0, HEAT_BLOCK] };
      var m = moves[e.key];
      if (!m) return;
      e.preventDefault();
      focusCell(at.op + m[0], at.type + m[1], true);
    });
    map.addEventListener('mouseover', function (e) { if (e.target.title) readout.textContent = e.target.title; });
    map.addEventListener('click', function (e) {
      cells.forEach(function (row, o) { var t = row.indexOf(e.target); if (t >= 0) focusCell(o, t, true); });
    });
    var legend = document.getElementById('heat-legend');
    legend.appendChild(document.createTextNode('0'));
    for (var level = 0; level <= 5; level++) legend.appendChild(el('span', { className: 'cell h' + level, 'aria-hidden': 'true' }));
    legend.appendChild(document.createTextNode(plural(max, 'record') + ' (most in one cell)'));
  }

  function renderFamilies(cov) {
    var box = document.getElementById('families');
    cov.families.forEach(function (f) {
      var share = f.of ? f.covered / f.of : 0;
      var label = f.family + ': ' + f.covered + ' of ' + f.of + ' covered (' + (100 * share).toFixed(1) + '%)';
      box.appendChild(el('span', { text: f.family }));
      box.appendChild(el('div', { className: 'track', role: 'img', 'aria-label': label, title: label },
                         [el('div', { className: 'fill', style: 'width:' + (100 * share).toFixed(2) + '%' })]));
      box.appendChild(el('span', { className: 'share', text: f.covered + ' of ' + f.of + ' (' + (100 * share).toFixed(1) + '%)' }));
    });
  }

  function renderCoverage() {
    var cov = data.coverage;
    if (!cov) return;
    var covered = cov.types.filter(function (t) { return t[1].some(function (n) { return n > 0; }); }).length;
    var attrs = 0, attrsOf = 0, pairs = 0, pairsOf = 0;
    cov.types.forEach(function (t) { attrs += t[2]; attrsOf += t[3]; pairs += t[4]; pairsOf += t[5]; });
    document.getElementById('coverage-totals').textContent = covered + ' of ' + cov.types.length + ' types, ' + attrs + ' of ' +
      attrsOf + ' attributes and ' + pairs + ' of ' + pairsOf + ' reference pairs covered, by ' + plural(cov.files, 'scenario file') + '.';
    renderHeatmap(cov);
    renderFamilies(cov);
    document.getElementById('coverage').hidden = false;
  }

  // ---- start -----------------------------------------------------------------------------------

  renderHeader();
  readFragment();
  renderFiles();
  renderCoverage();
  wireFilter();
  applyView();
})();
