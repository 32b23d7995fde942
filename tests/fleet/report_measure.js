// Measures a corebench-fleet HTML report from inside the page. Appended to a copy of the report
// as one more inline script; at the load event it writes its figures as one line of JSON into
// <pre id="measured"> (for chromium --dump-dom), '<', '>' and '&' as \u escapes:
//   loadMs     navigation start to the load event
//   labels     text elements drawn in SVG, overlaps: pairs of them whose boxes intersect (and the
//              first few such pairs in overlapping)
//   scrollWidth, viewportWidth  of the document
//   marks, flaggedMarks, disturbedMarks  marks drawn for nodes, for flagged ones and for ones
//              whose every run was disturbed, with the fill that node's mark is drawn with
//              (disturbedFill) and the hosts of the grey rows (disturbedRows, before any sort)
//   named, listed: flagged nodes named on a plot and
//              listed beside one
//   table      when the page has its node table, what it shows page by page and after each of a
//              few sorts and filters (see probeTable)
(function () {
  function overlapping(texts) {
    var boxes = [];
    texts.forEach(function (text) {
      var r = text.getBoundingClientRect();
      if (r.width > 0 && r.height > 0) {
        boxes.push({ l: r.left, r: r.right, t: r.top, b: r.bottom, text: text.textContent });
      }
    });
    boxes.sort(function (a, b) { return a.l - b.l; });
    var pairs = [];
    var count = 0;
    for (var i = 0; i < boxes.length; i++) {
      for (var j = i + 1; j < boxes.length && boxes[j].l < boxes[i].r; j++) {
        if (boxes[j].t < boxes[i].b && boxes[i].t < boxes[j].b) {
          if (pairs.length < 5) { pairs.push([boxes[i].text, boxes[j].text]); }
          count++;
        }
      }
    }
    return { labels: boxes.length, overlaps: count, overlapping: pairs };
  }

  // The table's shown rows as text (one array of cell texts per row) and its status line.
  function shown() {
    var rows = [];
    var body = document.getElementById('rows').tBodies[0];
    for (var i = 0; i < body.rows.length; i++) {
      var cells = [];
      for (var c = 0; c < body.rows[i].cells.length; c++) {
        cells.push(body.rows[i].cells[c].textContent);
      }
      rows.push(cells);
    }
    return { rows: rows, status: document.getElementById('rows-status').textContent };
  }

  function set(id, value) {
    var input = document.getElementById(id);
    if (input.type === 'checkbox') { input.checked = value; } else { input.value = value; }
    input.dispatchEvent(new Event(input.type === 'search' ? 'input' : 'change'));
  }

  // Each shown row's host and its cell of column i.
  function shownColumn(i) {
    return shown().rows.map(function (cells) { return [cells[0], cells[i]]; });
  }

  // Every page of rows as the table first shows them (the next page by a click on 'next'); sorted
  // by each column in turn (a click on its head, twice for the other direction), the hosts and
  // that column; filtered by part of a host name, by a CPU model, and to the flagged nodes only.
  function probeTable() {
    var heads = document.getElementById('rows').tHead.rows[0].cells;
    var next = document.getElementById('page-next');
    var out = { pages: [shown()], columns: [], sorted: [] };
    while (!next.disabled && out.pages.length < 1000) {
      next.click();
      out.pages.push(shown());
    }
    for (var i = 0; i < heads.length; i++) {
      out.columns.push(heads[i].textContent);
      heads[i].click();
      var up = shownColumn(i);
      heads[i].click();
      out.sorted.push({ up: up, down: shownColumn(i) });
    }
    var models = document.getElementById('cpu-filter').options;
    set('host-filter', '7');
    out.host7 = shown();
    set('host-filter', '');
    set('cpu-filter', models[models.length - 1].value);
    out.lastModel = { model: models[models.length - 1].textContent, shown: shown() };
    set('cpu-filter', '');
    set('flagged-filter', true);
    out.flaggedOnly = shown();
    set('flagged-filter', false);
    return out;
  }

  window.addEventListener('load', function () {
    var navigation = performance.getEntriesByType('navigation')[0];
    var out = overlapping(Array.prototype.slice.call(document.querySelectorAll('svg text')));
    out.loadMs = Math.round(navigation ? navigation.loadEventStart : performance.now());
    out.scrollWidth = document.documentElement.scrollWidth;
    out.viewportWidth = document.documentElement.clientWidth;
    out.marks = document.querySelectorAll('.mark').length;
    out.flaggedMarks = document.querySelectorAll('.mark.flagged').length;
    var disturbed = document.querySelectorAll('.mark.disturbed');
    out.disturbedMarks = disturbed.length;
    out.disturbedFill = disturbed.length ? getComputedStyle(disturbed[0]).fill : '';
    out.disturbedRows = Array.prototype.map.call(document.querySelectorAll('tr.disturbed'),
      function (tr) { return tr.cells[0].textContent; });
    out.named = document.querySelectorAll('svg text.label').length;
    out.listed = document.querySelectorAll('.unnamed li').length;
    if (document.getElementById('host-filter')) {
      out.table = probeTable();
    }
    var pre = document.createElement('pre');
    pre.id = 'measured';
    pre.textContent = JSON.stringify(out).replace(/[<>&]/g, function (c) {
      return '\\u00' + c.charCodeAt(0).toString(16);
    });
    document.body.appendChild(pre);
  });
})();
